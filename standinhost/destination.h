// SPDX-License-Identifier: MIT
// Finding what the path of a destination names, as the system resolves it.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "standinhost/open_directory.h"

namespace vesk::standin {

/// The missing parent directories of a destination that have been made. They stay until they are
/// removed explicitly.
class MadeParents {
public:
    /// Makes the missing directories of `parent`, as far as possible.
    void make(const std::filesystem::path& parent);

    /// Removes those that are still empty, the innermost first.
    void remove() noexcept;

private:
    struct Made {
        std::filesystem::path directory;  ///< the one that contains it
        std::filesystem::path name;
        struct stat status;
    };
    std::vector<Made> made_;
};

/// An entry of a directory that is held open. Symbolic links have been followed, one by one, to
/// their target. A link is not followed if it has no target, or if it is in a sticky directory and
/// belongs to another user: then the link itself is the destination.
struct Destination {
    FileDescriptor parent;
    std::string name;                  ///< "." for the root directory, which has no parent
    std::filesystem::path path;        ///< relative only if the destination was given as relative
    std::filesystem::path parentPath;  ///< absolute, without links and dots, if it can be resolved

    Entry entry() const { return {parent.number(), name.c_str()}; }
};

/// Finds the destination that `path` names. Makes missing parent directories and notes them in
/// `parents`, unless that is null. Returns the message of a failure, or null on success.
const char* findDestination(const std::filesystem::path& path, MadeParents* parents,
                            Destination& found);

/// Returns null if a tree may be placed at the destination, otherwise the message of the refusal.
/// Nothing or an empty directory may be there; with `overwrite` also a directory or a regular file.
/// A mount point and the root directory may never be replaced.
const char* refusalOf(const Destination& destination, bool overwrite);

}  // namespace vesk::standin
