// SPDX-License-Identifier: MIT
// Definitions of rename and renameat2 that come before the C library's.
#include "tests/standinhost/rename_faults.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

RenameFaults* active = nullptr;

}  // namespace

RenameFaults::RenameFaults() {
    active = this;
}
RenameFaults::~RenameFaults() {
    active = nullptr;
}

extern "C" int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
                         unsigned flags) noexcept {
    if (active != nullptr) {
        ++active->renameat2Calls;
        errno = active->beforeRenameat2 ? active->beforeRenameat2(flags) : 0;
        if (errno != 0) return -1;
    }
    return static_cast<int>(syscall(SYS_renameat2, fromDirectory, from, toDirectory, to, flags));
}

extern "C" int rename(const char* from, const char* to) noexcept {
    if (active != nullptr) {
        ++active->renameCalls;
        errno = active->beforeRename ? active->beforeRename(from, to) : 0;
        if (errno != 0) return -1;
    }
    return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}
