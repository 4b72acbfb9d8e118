// SPDX-License-Identifier: MIT
// Wrapping bytes in one gzip member (RFC 1952) of stored DEFLATE blocks (RFC 1951, 3.2.4).
#pragma once

#include <cstdint>
#include <span>

#include "fileaccess/byte_buffer.h"

namespace vesk::io::archives {

/// Returns the member that holds `content`; the caller owns it. Equal content gives equal members.
///
/// Content of n bytes gives n + 5 * max(1, ceil(n / 65535)) + 18 bytes: blocks of 65535 bytes, the
/// last with the remainder. Fails only when memory runs out (see ByteBuffer). Calls the runtime's
/// crc32Update once.
ByteBuffer gzipWriteMember(std::span<const std::uint8_t> content);

}  // namespace vesk::io::archives
