// SPDX-License-Identifier: MIT
// What the host makes of its own values: path strings and the mode handle.
#include "module/host/host_runtime.h"
#include "standinhost/call_observer.h"
#include "standinhost/standin_host.h"

std::filesystem::path Vesk_runtimeFsPath(const char* text) {
    vesk::standin::announceCall(vesk::standin::HostCall::runtimeFsPath);
    return {text};
}

bool vesk::runtime::archives::modeIsOverwrite(void* mode) {
    return mode != nullptr && static_cast<const standin::Mode*>(mode)->overwrite;
}
