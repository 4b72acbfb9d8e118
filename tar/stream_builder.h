// SPDX-License-Identifier: MIT
// Building a whole TAR stream in memory.
#pragma once

#include "fileaccess/byte_buffer.h"

namespace vesk::io::archives {

/// Returns the complete TAR stream of the file or directory at `sourcePath`, a host path string
/// that may be null or empty; the caller owns the stream.
///
/// Each entry has a header block, the data, and NULs up to the next multiple of 512 bytes. After
/// the last entry comes the end marker, 1024 NULs. On failure raises "Source path is required" or
/// the message of collecting, of reading or of a header, and returns an empty buffer; callers ask
/// Vesk_hasPendingError.
ByteBuffer tarBuildArchiveBytes(const char* sourcePath);

}  // namespace vesk::io::archives
