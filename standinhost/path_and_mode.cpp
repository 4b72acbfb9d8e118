// SPDX-License-Identifier: MIT
// Converts host path strings and mode handles.
#include "module/host/host_runtime.h"
#include "standinhost/call_observer.h"
#include "standinhost/staging.h"
#include "standinhost/standin_host.h"

std::filesystem::path Vesk_runtimeFsPath(const char* text) {
    vesk::standin::announceCall(vesk::standin::HostCall::runtimeFsPath);
    vesk::standin::notePath(text);
    return {text};
}

bool vesk::runtime::archives::modeIsOverwrite(void* mode) {
    const auto* const given = static_cast<const standin::Mode*>(mode);
    // Staging is prepared right after this call, on the same thread.
    standin::noteSync(given != nullptr && given->sync);
    return given != nullptr && given->overwrite;
}
