// SPDX-License-Identifier: MIT
// The whole content of a directory as a value, and how two such values differ.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace vesk::testing {

/// In an expectation: any group, as new objects may inherit that of their directory.
inline constexpr gid_t anyGroup = static_cast<gid_t>(-1);

/// One name and its object; a link stands for itself. Times are omitted, since reading a file, or
/// making one beside it, changes them.
struct Thing {
    mode_t mode = 0;
    uid_t uid = 0;
    gid_t gid = 0;
    ino_t inode = 0;      // 0 in an expectation: any, as that of a new object is unknown
    std::string content;  // a file's bytes or a link's target

    mode_t type() const { return mode & S_IFMT; }
    bool isDirectory() const { return S_ISDIR(mode); }
    bool isRegular() const { return S_ISREG(mode); }
    bool isLink() const { return S_ISLNK(mode); }
};

/// The objects below a directory by their paths from there, without a slash at either end. The
/// directory itself is not included.
using Snapshot = std::map<std::string, Thing>;

/// Reads what is below `directory`. Opens what the current user owns but may not read, and closes
/// it again; throws for anything else that cannot be read.
Snapshot takeSnapshot(const std::filesystem::path& directory);

/// Tells whether `path` is `directory` or below it. The empty path is above all others.
bool isAtOrBelow(const std::string& path, const std::string& directory);

/// Returns the path of the directory that contains `path`; empty at the top.
std::string parentOf(const std::string& path);

/// Removes the objects at `path` and below.
void eraseTree(Snapshot& snapshot, const std::string& path);

/// Tells whether the directory at `path` is empty.
bool isEmptyDirectory(const Snapshot& snapshot, const std::string& path);

struct Difference {
    std::string path;
    std::string what;  // "vanished", "appeared", "has another ..."
};

/// Returns how `found` differs from `expected`.
std::vector<Difference> differences(const Snapshot& expected, const Snapshot& found);

/// Returns a path in a form in which every byte of it is visible on one line.
std::string visible(const std::string& text);

/// Returns one line for each object.
std::string listing(const Snapshot& snapshot);

}  // namespace vesk::testing
