// SPDX-License-Identifier: MIT
// Where a new archive belongs, and where the module writes it so that it appears there complete.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace vesk::commandline {

/// What the module is called with instead of the name given by the user. The module's checks give
/// the same result as for that name.
struct ArchiveTarget {
    std::string modulePath;
    bool moduleOverwrites;
    /// The regular file that `modulePath` is to become; its last component is no link. Nothing if
    /// the module writes to `modulePath` itself or refuses it, such as a device, a directory or the
    /// open file behind /dev/stdout.
    std::optional<std::filesystem::path> file;
};

/// Finds what the new archive's name refers to. Symbolic links are followed, except a link in a
/// sticky directory that belongs neither to this user nor to the directory's owner. Creates
/// nothing.
ArchiveTarget findArchiveTarget(const std::string& archive, const std::string& source,
                                bool overwrite);

}  // namespace vesk::commandline
