// SPDX-License-Identifier: MIT
// File systems for one test, mounted where no other process sees them.
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

#include "tests/support/ordinary_user.h"

namespace vesk::testing {

inline bool writeTo(const char* path, const std::string& text) {
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    const bool isWritten =
        file != -1 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (file != -1) close(file);
    return isWritten;
}

/// Gives this process its own mounts. An ordinary user needs a user namespace for that.
inline bool separateMounts() {
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    const bool isSuperuser = geteuid() == 0;
    if (unshare(CLONE_NEWNS | (isSuperuser ? 0 : CLONE_NEWUSER)) != 0) return false;
    const bool isMapped = isSuperuser || (writeTo("/proc/self/uid_map", "0 " + user + " 1") &&
                                          writeTo("/proc/self/setgroups", "deny") &&
                                          writeTo("/proc/self/gid_map", "0 " + group + " 1"));
    return isMapped && mount("none", "/", "", MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// Tells whether this machine lets a process mount. Where it does not, tests that need it skip.
inline bool canMount() {
    return inChildThatBecame(separateMounts, [] { return "yes"; }) == "yes";
}

/// Runs `body` in a child process that may mount anything; see inChildThatBecame.
inline std::string withMounts(const std::function<std::string()>& body) {
    return inChildThatBecame(separateMounts, body);
}

/// Mounts a file system in memory on `directory`.
inline bool mountMemory(const std::filesystem::path& directory, const char* options = "") {
    return mount("none", directory.c_str(), "tmpfs", 0, options) == 0;
}

/// Makes `place` show what is at `path`.
inline bool bindMount(const std::filesystem::path& path, const std::filesystem::path& place) {
    return mount(path.c_str(), place.c_str(), "", MS_BIND, nullptr) == 0;
}

/// Mounts on `place` an overlay of the directory `lower`, with new directories below `work` for the
/// changes.
inline bool mountOverlay(const std::filesystem::path& lower, const std::filesystem::path& work,
                         const std::filesystem::path& place) {
    for (const char* name : {"upper", "work"})
        std::filesystem::create_directories(work / name);
    const std::string options = "redirect_dir=off,lowerdir=" + lower.native() +
                                ",upperdir=" + (work / "upper").native() +
                                ",workdir=" + (work / "work").native();
    return mount("overlay", place.c_str(), "overlay", 0, options.c_str()) == 0;
}

}  // namespace vesk::testing
