// SPDX-License-Identifier: MIT
// What a destination's path names for the system.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "standinhost/open_directory.h"

namespace vesk::standin {

/// The directories that were missing on the way to a destination and have been made. Nothing
/// becomes of them by itself.
class MadeParents {
public:
    /// Makes the directories of `parent` that are missing, as far as that is possible.
    void make(const std::filesystem::path& parent);

    /// Removes those that are still empty, the innermost first.
    void remove() noexcept;

private:
    struct Made {
        std::filesystem::path directory;  ///< in which it is
        std::filesystem::path name;
        struct stat status;
    };
    std::vector<Made> made_;
};

/// An entry of a directory that is held open. Symbolic links have been followed, step by step, to
/// what they name; one that names nothing, or that belongs to another user in a sticky directory,
/// stands for itself.
struct Destination {
    FileDescriptor parent;
    std::string name;                  ///< "." for the root directory, which is an entry of none
    std::filesystem::path path;        ///< to it, relative if the destination was given so
    std::filesystem::path parentPath;  ///< absolute, without links and dots, if it can be told

    Entry entry() const { return {parent.number(), name.c_str()}; }
};

/// Finds the destination that `path` names. Missing parent directories are made and noted in
/// `parents`, unless that is null. Returns the message of a failure, null when there is none.
const char* findDestination(const std::filesystem::path& path, MadeParents* parents,
                            Destination& found);

/// Returns the message for a destination that may not be written to, null for one that may: where
/// nothing is, or an empty directory, or, to `overwrite`, a directory or a regular file. A mount
/// point and the root directory may never be replaced.
const char* refusalOf(const Destination& destination, bool overwrite);

}  // namespace vesk::standin
