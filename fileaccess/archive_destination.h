// SPDX-License-Identifier: MIT
// The archive file that is being made: whether its path may be used, and writing it.
#pragma once

#include <filesystem>

#include "fileaccess/byte_buffer.h"

namespace vesk::io::archives {

/// Decides whether `archivePath` may be written and creates its missing parent directories.
///
/// Returns true when it may. Otherwise raises, in this order of tests, "Cannot inspect archive
/// destination", "Archive already exists" (anything stands there and `overwrite` is false; a
/// dangling symbolic link counts as absent) or "Cannot create archive parent directory", and
/// returns false. An existing object is left as it is; parents created before a failure stay.
bool archivePrepareArchivePath(const std::filesystem::path& archivePath, bool overwrite);

/// Writes `bytes` to `archivePath`, which is truncated or created, with one write.
///
/// Raises "Cannot create archive parent directory", "Cannot create archive" (it cannot be opened)
/// or "Cannot finalize archive" (the write or the close failed; what was written stays). Nothing is
/// returned: it is the last step of its callers.
void archiveWriteFileBytes(const std::filesystem::path& archivePath, const ByteBuffer& bytes);

}  // namespace vesk::io::archives
