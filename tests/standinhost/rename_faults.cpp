// SPDX-License-Identifier: MIT
// Definitions of the C library's renames and flushes that take precedence over its own.
#include "tests/standinhost/rename_faults.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

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
        ++active->exchangeCalls;
        errno = active->beforeExchange ? active->beforeExchange() : 0;
        if (errno != 0) return -1;
    }
    return static_cast<int>(syscall(SYS_renameat2, fromDirectory, from, toDirectory, to, flags));
}

extern "C" int renameat(int fromDirectory, const char* from, int toDirectory,
                        const char* to) noexcept {
    const bool staysInside = std::strcmp(from, "tree") == 0 && std::strcmp(to, "moved") == 0;
    if (active != nullptr && !staysInside) {
        ++active->renameCalls;
        errno = active->beforeRename ? active->beforeRename(from, to) : 0;
        if (errno != 0) return -1;
    }
    return static_cast<int>(syscall(SYS_renameat2, fromDirectory, from, toDirectory, to, 0));
}

extern "C" int syncfs(int descriptor) noexcept {
    return static_cast<int>(active != nullptr && active->flush ? active->flush("file system")
                                                               : syscall(SYS_syncfs, descriptor));
}

extern "C" int fsync(int descriptor) {
    return static_cast<int>(active != nullptr && active->flush ? active->flush("directory")
                                                               : syscall(SYS_fsync, descriptor));
}
