// SPDX-License-Identifier: MIT
// What goes into an archive: the regular files of a source, named and in archive order.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vesk::io::archives {

/// One regular file to be archived.
struct ArchiveEntryInfo {
    std::string sourcePath;  ///< where its bytes are read from: a path's native text
    std::string entryName;   ///< its name in the archive: relative, "/" between components
};

/// Returns the regular files of `source`, itself a file or a directory, in ascending byte order of
/// their names; the caller owns the list. Directories are never entries.
///
/// Symbolic links to files are followed, links to directories are not walked, and what is neither
/// file nor directory is skipped. On failure raises "Archive source does not exist", "Archive
/// source must be a file or directory" or "Cannot enumerate archive source" (a directory or an
/// entry in it cannot be read, dangling links included) and returns an empty list. A directory
/// without files gives an empty list too, so callers ask Vesk_hasPendingError.
std::vector<ArchiveEntryInfo> collectArchiveEntries(const std::filesystem::path& source);

/// Returns `path` as text with exactly one "/" wherever it has one or more; other bytes unchanged.
std::string zipNormalizeEntryName(const std::filesystem::path& path);

}  // namespace vesk::io::archives
