// SPDX-License-Identifier: MIT
// Reading a file whole: every source file, and every archive that is to be unpacked.
#pragma once

#include <fstream>
#include <string>

#include "fileaccess/byte_buffer.h"
#include "fileaccess/byte_file.h"

namespace vesk::io::archives {

/// Appends the bytes of the file at `path`, a path's native text, to `bytes`: at most 4294967295.
///
/// The size is taken once, before the read: bytes that the file gains meanwhile are not read. On
/// failure raises "Cannot read file: " followed by the path as given (it cannot be opened, or fewer
/// bytes come than its size) or "ZIP entry is too large for ZIP32" (it is larger, or its size
/// cannot be told; nothing has been allocated then). `bytes` may then have gained bytes of any
/// content, and an empty file adds none, so callers ask Vesk_hasPendingError. `file`, which is used
/// to read it, is not open before and after.
void zipReadFileBytes(const std::string& path, ByteFile<std::ifstream>& file, ByteBuffer& bytes);

}  // namespace vesk::io::archives
