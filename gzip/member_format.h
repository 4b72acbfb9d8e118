// SPDX-License-Identifier: MIT
// The parts of the formats gzip (RFC 1952) and DEFLATE (RFC 1951) that the reader and the writer
// share. All integers of the format are little-endian.
#pragma once

#include <cstddef>
#include <cstdint>

#include "module/host/host_runtime.h"

namespace vesk::io::archives {

enum : std::uint8_t {
    gzipId1 = 0x1F,
    gzipId2 = 0x8B,
    gzipDeflate = 8,
};

/// Sizes in bytes.
enum : std::size_t {
    gzipHeaderSize = 10,    ///< without the optional fields
    gzipTrailerSize = 8,    ///< CRC32 and ISIZE
    gzipStoredMax = 65535,  ///< the largest content of one stored block
};

/// Returns the CRC-32 of `count` bytes as the format stores it.
inline std::uint32_t gzipCrc32(const std::uint8_t* bytes, std::uint64_t count) {
    return ~vesk::runtime::zip::crc32Update(0xFFFFFFFF, bytes, count);
}

}  // namespace vesk::io::archives
