// SPDX-License-Identifier: MIT
// Reading a whole file: a source file, or an archive to be unpacked.
#pragma once

#include <fstream>
#include <string>

#include "fileaccess/byte_buffer.h"
#include "fileaccess/byte_file.h"

namespace vesk::io::archives {

/// Appends the bytes of the file at `path`, the native text of a path, to `bytes`. A file may have
/// at most 4294967295 bytes.
///
/// The size is determined once, before reading: bytes that are added to the file later are not
/// read. On failure raises "Cannot read file: " followed by `path` (the file cannot be opened, or
/// yields fewer bytes than its size) or "ZIP entry is too large for ZIP32" (it is larger, or its
/// size is unknown; nothing has been allocated then). The size of `bytes` does not tell whether
/// reading failed: a failure may append unspecified bytes, and an empty file appends none. Callers
/// ask Vesk_hasPendingError. `file` is the stream to read with: it must not be open, and is closed
/// again on return.
void zipReadFileBytes(const std::string& path, ByteFile<std::ifstream>& file, ByteBuffer& bytes);

}  // namespace vesk::io::archives
