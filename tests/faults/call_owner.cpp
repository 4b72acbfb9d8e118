// SPDX-License-Identifier: MIT
// Examining the call stack.
#include "tests/faults/call_owner.h"

#include <dlfcn.h>
#include <execinfo.h>

#include <array>
#include <cstring>

namespace vesk::testing {

namespace {

/// Calls `seen` for each function on the call stack, the innermost first, until it returns true.
template <typename Seen>
void walkStack(const Seen& seen) {
    std::array<void*, 96> frames;
    const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
    for (int i = 0; i < count; ++i) {
        Dl_info info{};
        if (dladdr(frames[static_cast<std::size_t>(i)], &info) != 0 && seen(info)) return;
    }
}

CallOwner ownerOf(const char* library) {
    if (std::strstr(library, "libvesk_io_archives.so")) return CallOwner::module;
    if (std::strstr(library, "libvesk_standin_host.so")) return CallOwner::host;
    return CallOwner::none;
}

}  // namespace

CallOwner callOwner() {
    CallOwner owner = CallOwner::none;
    walkStack([&](const Dl_info& frame) {
        owner = ownerOf(frame.dli_fname);
        return owner != CallOwner::none;
    });
    return owner;
}

bool isCalledBy(const char* name) {
    bool found = false;
    walkStack([&](const Dl_info& frame) {
        found = frame.dli_sname != nullptr && std::strstr(frame.dli_sname, name) != nullptr;
        return found;
    });
    return found;
}

}  // namespace vesk::testing
