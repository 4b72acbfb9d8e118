// SPDX-License-Identifier: MIT
// What a sandbox is to hold, as a value: put together at random or by hand.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "tests/sandbox/acting_user.h"
#include "tests/sandbox/random_source.h"

namespace vesk::testing {

/// One thing of a sandbox: its path from the top, and what it is.
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

/// How many directories lie above the first one in which random things are. A path climbs at most
/// as far, so that even a wrong reading of it ends inside the sandbox, where it is noticed.
inline constexpr int guardCount = 6;

/// The path, from the top, of the directory in which the random things are.
std::string plannedRoot();

/// Splits a path at its slashes; empty parts are left out.
std::vector<std::string> splitPath(const std::string& path);

/// Joins parts by slashes.
std::string joinPath(const std::vector<std::string>& parts);

/// Returns a relative path that leads from the directory `from` to `to`, both from the top and
/// neither through a link.
std::string relativePath(const std::string& from, const std::string& to);

/// Plans directories, files, FIFOs, sockets and links to anything, with hard names and permissions,
/// most of them owned by `user`. `top` is where the sandbox is to be, for links that are absolute.
SandboxPlan randomPlan(RandomSource& random, const ActingUser& user, const std::string& top);

/// Returns a name that is likely to be taken already, or to be hard to handle.
std::string randomName(RandomSource& random);

}  // namespace vesk::testing
