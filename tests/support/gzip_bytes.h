// SPDX-License-Identifier: MIT
// Gzip members for tests, built byte by byte (RFC 1952). zlib compresses and computes checksums.
#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vesk::testing {

/// Returns the low `count` bytes of `value`, the lowest first.
inline std::string littleEndian(std::uint32_t value, int count) {
    std::string bytes;
    for (; count > 0; --count, value >>= 8)
        bytes += static_cast<char>(value & 0xFF);
    return bytes;
}

/// Returns zlib's CRC-32 of `content`.
inline std::uint32_t zlibCrc32(std::string_view content) {
    const auto* const bytes = reinterpret_cast<const Bytef*>(content.data());
    return static_cast<std::uint32_t>(crc32_z(0, bytes, content.size()));
}

/// Returns `content` as raw DEFLATE data (RFC 1951), compressed by zlib; with the level 0, stored
/// in blocks of 65535 bytes and one of the rest.
inline std::string rawDeflate(std::string_view content, int level = 6,
                              int strategy = Z_DEFAULT_STRATEGY) {
    z_stream stream{};
    if (deflateInit2(&stream, level, Z_DEFLATED, -15, 8, strategy) != Z_OK)
        throw std::runtime_error("deflateInit2 failed");
    std::string packed(deflateBound(&stream, content.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(content.data()));
    stream.avail_in = static_cast<uInt>(content.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    const int result = deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    if (result != Z_STREAM_END) throw std::runtime_error("deflate failed");
    return packed;
}

/// Returns the ten bytes that begin a member: ID1, ID2, CM, FLG, MTIME, XFL and OS.
inline std::string gzipHeader(unsigned flags = 0) {
    return std::string("\x1F\x8B\x08") + static_cast<char>(flags) +
           std::string("\0\0\0\0\0\xFF", 6);
}

/// Returns the eight bytes that end a member: CRC32 and ISIZE of `content`.
inline std::string gzipTrailer(std::string_view content) {
    return littleEndian(zlibCrc32(content), 4) +
           littleEndian(static_cast<std::uint32_t>(content.size()), 4);
}

/// Returns a member with the header `header` around the compressed `content`.
inline std::string gzipMember(std::string_view content, const std::string& header = gzipHeader()) {
    return header + rawDeflate(content) + gzipTrailer(content);
}

/// Returns what zlib decodes from a gzip member that is all of `member`, of which it checks CRC32
/// and ISIZE; nothing when it refuses it, or when that is more than `most` bytes.
inline std::optional<std::string> gunzip(std::string_view member, std::size_t most) {
    z_stream stream{};
    if (inflateInit2(&stream, 15 + 16) != Z_OK) throw std::runtime_error("inflateInit2 failed");
    std::string content(most, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(member.data()));
    stream.avail_in = static_cast<uInt>(member.size());
    stream.next_out = reinterpret_cast<Bytef*>(content.data());
    stream.avail_out = static_cast<uInt>(content.size());
    const bool isWhole = inflate(&stream, Z_FINISH) == Z_STREAM_END && stream.avail_in == 0;
    content.resize(stream.total_out);
    inflateEnd(&stream);
    if (!isWhole) return std::nullopt;
    return content;
}

/// Returns `header` with the field of FHCRC after it: the low half of the CRC-32 of the header.
inline std::string withHeaderChecksum(const std::string& header) {
    return header + littleEndian(zlibCrc32(header), 2);
}

}  // namespace vesk::testing
