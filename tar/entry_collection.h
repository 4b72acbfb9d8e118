// SPDX-License-Identifier: MIT
// Collecting the regular files of a source: their entry names, in the order of the archive.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vesk::io::archives {

/// One regular file to be archived.
struct ArchiveEntryInfo {
    std::string sourcePath;  ///< the file to read: the native text of its path
    std::string entryName;   ///< its name in the archive: relative, "/" between components
};

/// Returns the regular files of `source`, itself a file or a directory, in ascending byte order of
/// their names; the caller owns the list. Directories are never entries.
///
/// Symbolic links to files are followed. Links to directories are not walked. Other kinds of file
/// are skipped. On failure raises "Archive source does not exist", "Archive source must be a file
/// or directory" or "Cannot enumerate archive source" (a directory cannot be read, or the type of
/// an entry in it cannot be found: it may be a dangling link) and returns an empty list. A
/// directory without files gives an empty list too, so callers ask Vesk_hasPendingError.
std::vector<ArchiveEntryInfo> collectArchiveEntries(const std::filesystem::path& source);

/// Returns the text of `path` with each run of "/" replaced by one; other bytes are unchanged.
std::string zipNormalizeEntryName(const std::filesystem::path& path);

}  // namespace vesk::io::archives
