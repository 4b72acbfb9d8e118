// SPDX-License-Identifier: MIT
// Writing a gzip member of stored blocks, field by field in the order of the format.
#include "gzip/member_writer.h"

#include <algorithm>

#include "gzip/member_format.h"

namespace vesk::io::archives {

namespace {

void appendUint16(ByteBuffer& out, std::size_t value) {
    out.append(static_cast<std::uint8_t>(value));
    out.append(static_cast<std::uint8_t>(value >> 8));
}

void appendUint32(ByteBuffer& out, std::uint32_t value) {
    appendUint16(out, value);
    appendUint16(out, value >> 16);
}

void appendHeader(ByteBuffer& out) {
    out.append(gzipId1);
    out.append(gzipId2);
    out.append(gzipDeflate);  // CM
    out.append(0);            // FLG
    appendUint32(out, 0);     // MTIME
    out.append(0);            // XFL
    out.append(0xFF);         // OS: unknown
}

void appendStoredBlock(ByteBuffer& out, std::span<const std::uint8_t> block, bool final) {
    out.append(final ? 1 : 0);                 // BFINAL, then BTYPE 00 and padding
    appendUint16(out, block.size());           // LEN
    appendUint16(out, block.size() ^ 0xFFFF);  // NLEN
    out.append(block.data(), block.size());
}

}  // namespace

ByteBuffer gzipWriteMember(std::span<const std::uint8_t> content) {
    ByteBuffer member;
    // Header, trailer and the last block's five bytes add up to 23, so 32 bytes are enough.
    member.reserve(content.size() + content.size() / gzipStoredMax * 5 + 32);
    appendHeader(member);

    std::span<const std::uint8_t> rest = content;
    bool final = false;
    while (!final) {
        const std::size_t count = std::min<std::size_t>(rest.size(), gzipStoredMax);
        final = count == rest.size();
        appendStoredBlock(member, rest.first(count), final);
        rest = rest.subspan(count);
    }

    appendUint32(member, gzipCrc32(content.data(), content.size()));   // CRC32
    appendUint32(member, static_cast<std::uint32_t>(content.size()));  // ISIZE
    return member;
}

}  // namespace vesk::io::archives
