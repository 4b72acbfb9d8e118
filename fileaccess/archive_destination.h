// SPDX-License-Identifier: MIT
// The file of a new archive: deciding whether its path may be used, and writing it.
#pragma once

#include <filesystem>

#include "fileaccess/byte_buffer.h"

namespace vesk::io::archives {

/// Decides whether `archivePath` may be written and creates its missing parent directories.
///
/// Returns true when it may be written. Otherwise returns false and raises the first of these that
/// applies: "Cannot inspect archive destination", "Archive already exists" (something exists there
/// and `overwrite` is false; a dangling symbolic link counts as absent), "Cannot create archive
/// parent directory". An existing object is left as it is; parents created before a failure stay.
bool archivePrepareArchivePath(const std::filesystem::path& archivePath, bool overwrite);

/// Truncates or creates the file at `archivePath`, then writes `bytes` to it with one write.
/// Creates parent directories that have vanished since archivePrepareArchivePath.
///
/// Raises "Cannot create archive parent directory", "Cannot create archive" (it cannot be opened)
/// or "Cannot finalize archive" (the write or the close failed; what was written stays). Returns
/// nothing, since it is the last step of its callers.
void archiveWriteFileBytes(const std::filesystem::path& archivePath, const ByteBuffer& bytes);

}  // namespace vesk::io::archives
