// SPDX-License-Identifier: MIT
// Converts host path strings and mode handles.
#include "standinhost/path_and_mode.h"

#include "module/host/host_runtime.h"
#include "standinhost/call_observer.h"
#include "standinhost/standin_host.h"

namespace {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): one for each thread
thread_local bool askedForSync = false;

}  // namespace

std::filesystem::path Vesk_runtimeFsPath(const char* text) {
    vesk::standin::announceCall(vesk::standin::HostCall::runtimeFsPath);
    return {text};
}

bool vesk::runtime::archives::modeIsOverwrite(void* mode) {
    const auto* const given = static_cast<const standin::Mode*>(mode);
    // Staging comes right after this question, on the same thread.
    askedForSync = given != nullptr && given->sync;
    return given != nullptr && given->overwrite;
}

bool vesk::standin::isSyncAskedFor() {
    return askedForSync;
}
