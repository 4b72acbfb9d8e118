// SPDX-License-Identifier: MIT
// What a path names for the kernel, determined step by step before the path is used.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

namespace vesk::testing {

/// Where a path leads.
struct KernelPlace {
    int error = 0;                     // why the kernel finds no way there; 0 when it finds one
    std::string directory;             // the absolute path, without links, of the last directory
    std::vector<std::string> missing;  // names below it that are not there; empty: all is there
    std::optional<struct stat> there;  // what stands at the end, when something does
    std::string path;  // the absolute path of the end, without links; before a name that is too
                       // long, that of the missing ones

    bool mayChange = false;    // the user may put names into `directory` and take them away
    bool isReachable = false;  // it and the working directory have absolute paths that lead there

    std::vector<std::string> passedMissing;  // paths of missing names that ".." leads back from
    bool endsInLink = false;                 // the last name is a link; `path` is what it names
    bool endDangles = false;                 // and it leads nowhere, or in a circle
    bool linkOfAnother = false;  // one of the links at the end is another user's, and anybody could
                                 // have put it into its directory, which keeps others' names
};

/// Follows `path` from the working directory as the current user, component by component, as the
/// kernel does.
KernelPlace findPlace(const std::string& path);

/// Removes the slashes and dots at the end, which require a directory.
std::string withoutTrailingDots(std::string path);

}  // namespace vesk::testing
