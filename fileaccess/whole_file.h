// SPDX-License-Identifier: MIT
// Reading a file whole: every source file, and every archive that is to be unpacked.
#pragma once

#include <filesystem>

#include "fileaccess/byte_buffer.h"

namespace vesk::io::archives {

/// Reads the file at `path`, at most 4294967295 bytes, and returns its bytes, owned by the caller.
///
/// The size is taken once, before the read: bytes that the file gains meanwhile are not read. On
/// failure raises "Cannot read file: " followed by the path as given (it cannot be opened, or fewer
/// bytes come than its size) or "ZIP entry is too large for ZIP32" (it is larger, or its size
/// cannot be told; nothing has been allocated then) and returns an empty buffer. An empty file
/// gives an empty buffer too, so callers ask Vesk_hasPendingError.
ByteBuffer zipReadFileBytes(const std::filesystem::path& path);

}  // namespace vesk::io::archives
