// SPDX-License-Identifier: MIT
// Where a new archive is to be, and where the module is to write it so that it comes there whole.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace vesk::commandline {

/// What the module is called with in the place of what the user named. The module's checks come out
/// as they would for the user's name.
struct ArchiveTarget {
    std::string modulePath;
    bool moduleOverwrites;
    /// The regular file that `modulePath` is to become, with no link in its last place; nothing
    /// where the module writes, or is refused, directly: it is no regular file.
    std::optional<std::filesystem::path> file;
};

/// Looks at what the new archive's name stands for. A symbolic link stands for what it points at,
/// but no other user's link in a directory where everybody may put one. Nothing is created.
ArchiveTarget findArchiveTarget(const std::string& archive, const std::string& source,
                                bool overwrite);

}  // namespace vesk::commandline
