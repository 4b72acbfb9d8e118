// SPDX-License-Identifier: MIT
// The content of a sandbox as a value: random or written by hand.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "tests/sandbox/acting_user.h"
#include "tests/sandbox/random_source.h"

namespace vesk::testing {

/// One object of a sandbox: its path from the top, and what it is.
struct PlannedThing {
    std::string path;
    mode_t type;  // S_IFDIR, S_IFREG, S_IFLNK, S_IFIFO or S_IFSOCK
    mode_t permissions;
    ActingUser owner;
    std::string content;  // a file's bytes or a link's target
};

struct SandboxPlan {
    std::vector<PlannedThing> things;  // each directory before what it holds
    std::string workingDirectory;      // from the top
};

/// The number of directories above the first one with random objects. No path climbs further, so
/// that even a misread path ends inside the sandbox, where it is noticed.
inline constexpr int guardCount = 6;

/// Returns the path, from the top, of the directory with the random objects.
std::string plannedRoot();

/// Splits a path at its slashes; empty parts are omitted.
std::vector<std::string> splitPath(const std::string& path);

/// Joins parts with slashes.
std::string joinPath(const std::vector<std::string>& parts);

/// Returns a relative path from the directory `from` to `to`. Both are paths from the top without
/// links.
std::string relativePath(const std::string& from, const std::string& to);

/// Plans directories, files, FIFOs, sockets and links to anything, with difficult names and
/// permissions, most of them owned by `user`. `top` is where the sandbox will be, for absolute
/// links.
SandboxPlan randomPlan(RandomSource& random, const ActingUser& user, const std::string& top);

/// Returns a name that is probably in use already, or difficult to handle.
std::string randomName(RandomSource& random);

}  // namespace vesk::testing
