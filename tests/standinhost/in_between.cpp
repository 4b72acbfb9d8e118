// SPDX-License-Identifier: MIT
// Definitions of C library functions that take precedence over the library's own.
#include "tests/standinhost/in_between.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace {

InBetween* active = nullptr;

/// Does it once, and preserves the error number of the surrounding call.
void doOnce(std::function<void()>& deed) {
    const int error = errno;
    if (deed) std::exchange(deed, nullptr)();
    errno = error;
}

}  // namespace

InBetween::InBetween() {
    active = this;
}
InBetween::~InBetween() {
    active = nullptr;
}

extern "C" int mkdirat(int directory, const char* name, mode_t mode) noexcept {
    if (active != nullptr && active->isTaken && active->isTaken(name))
        syscall(SYS_mkdirat, directory, name, mode);
    const int result = static_cast<int>(syscall(SYS_mkdirat, directory, name, mode));
    const int error = errno;
    if (active != nullptr && active->afterMaking) active->afterMaking(name);
    errno = error;
    return result;
}

extern "C" ssize_t readlink(const char* path, char* text, size_t size) noexcept {
    if (active != nullptr) doOnce(active->beforeReading);
    return syscall(SYS_readlinkat, AT_FDCWD, path, text, size);
}

extern "C" int unlinkat(int directory, const char* name, int flags) noexcept {
    if (active != nullptr && active->beforeRemoving) active->beforeRemoving(name);
    return static_cast<int>(syscall(SYS_unlinkat, directory, name, flags));
}

extern "C" int rmdir(const char* path) noexcept {
    return unlinkat(AT_FDCWD, path, AT_REMOVEDIR);
}

extern "C" int statx(int directory, const char* name, int flags, unsigned wanted,
                     struct statx* status) noexcept {
    const long result = syscall(SYS_statx, directory, name, flags, wanted, status);
    if (active != nullptr && !active->tellsMounts) {
        status->stx_attributes_mask = 0;
        status->stx_attributes = 0;
    }
    return static_cast<int>(result);
}
