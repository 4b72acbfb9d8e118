// SPDX-License-Identifier: MIT
// All that stands below a directory, as a value, and how two such values differ.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace vesk::testing {

/// In an expectation: any group, as what is made anew may inherit its directory's.
inline constexpr gid_t anyGroup = static_cast<gid_t>(-1);

/// One name and what it stands for; a link stands for itself. Times are left out, as reading a file
/// and making one beside it change them.
struct Thing {
    mode_t mode = 0;
    uid_t uid = 0;
    gid_t gid = 0;
    ino_t inode = 0;      // 0 in an expectation: any, as what is made anew has an unknown one
    std::string content;  // a file's bytes or a link's target

    mode_t type() const { return mode & S_IFMT; }
    bool isDirectory() const { return S_ISDIR(mode); }
    bool isRegular() const { return S_ISREG(mode); }
    bool isLink() const { return S_ISLNK(mode); }
};

/// The things below a directory by their paths from there, without a slash at either end; the
/// directory itself is not among them.
using Snapshot = std::map<std::string, Thing>;

/// Reads what is below `directory`. What the present user may not read but owns is opened up and
/// closed again; throws for anything else that cannot be read.
Snapshot takeSnapshot(const std::filesystem::path& directory);

/// Returns whether `path` is `directory` or below it. The empty path is above all others.
bool isAtOrBelow(const std::string& path, const std::string& directory);

/// Returns the path that holds `path`; empty at the top.
std::string parentOf(const std::string& path);

/// Removes the things at `path` and below.
void eraseTree(Snapshot& snapshot, const std::string& path);

/// Returns whether the directory at `path` holds nothing.
bool isEmptyDirectory(const Snapshot& snapshot, const std::string& path);

struct Difference {
    std::string path;
    std::string what;  // "vanished", "appeared", "has another ..."
};

/// Returns what is otherwise in `found` than in `expected`.
std::vector<Difference> differences(const Snapshot& expected, const Snapshot& found);

/// Writes a path so that every byte of it can be seen on one line.
std::string visible(const std::string& text);

/// One line for each thing.
std::string listing(const Snapshot& snapshot);

}  // namespace vesk::testing
