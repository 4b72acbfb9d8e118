// SPDX-License-Identifier: MIT
// Reading a gzip member: its fields are checked in the order of the format.
#include "gzip/member_reader.h"

#include <algorithm>
#include <ios>
#include <sstream>
#include <utility>

#include "gzip/member_format.h"
#include "module/host/failure.h"

namespace vesk::io::archives {

namespace {

enum : std::size_t { flgOffset = 3 };

enum GzipFlag : std::uint8_t {
    gzipHasHeaderChecksum = 0x02,  // FHCRC
    gzipHasExtraField = 0x04,      // FEXTRA
    gzipHasFileName = 0x08,        // FNAME
    gzipHasComment = 0x10,         // FCOMMENT
    gzipReservedFlags = 0xE0,
};

std::uint32_t uint16At(const std::uint8_t* bytes) {
    return bytes[0] | std::uint32_t{bytes[1]} << 8;
}

std::uint32_t uint32At(const std::uint8_t* bytes) {
    return uint16At(bytes) | uint16At(bytes + 2) << 16;
}

// Walks over the optional header fields, from `position` up to the trailer at `payloadEnd`.
struct HeaderCursor {
    const std::uint8_t* member;
    std::size_t position;
    std::size_t payloadEnd;

    bool skip(std::size_t count) {
        if (count > payloadEnd - position) return false;
        position += count;
        return true;
    }

    bool skipExtraField() {
        const std::uint8_t* const xlen = member + position;
        return skip(2) && skip(uint16At(xlen));
    }

    bool skipZeroTerminated() {
        const std::uint8_t* const end = member + payloadEnd;
        const std::uint8_t* const zero = std::find(member + position, end, 0);
        if (zero == end) return false;
        position = static_cast<std::size_t>(zero - member) + 1;
        return true;
    }
};

bool checkHeaderChecksum(HeaderCursor& header, std::string& errorText) {
    const std::size_t covered = header.position;
    if (!header.skip(2)) return reportFailure(errorText, "Truncated gzip header checksum");

    if ((gzipCrc32(header.member, covered) & 0xFFFF) != uint16At(header.member + covered)) {
        return reportFailure(errorText, "Invalid gzip header checksum");
    }
    return true;
}

bool checkFixedFields(const ByteBuffer& member, std::string& errorText) {
    const std::uint8_t* const bytes = member.data();
    if (member.size() < gzipHeaderSize + gzipTrailerSize || bytes[0] != gzipId1 ||
        bytes[1] != gzipId2 || bytes[2] != gzipDeflate) {
        return reportFailure(errorText, "Invalid gzip stream");
    }
    if ((bytes[flgOffset] & gzipReservedFlags) != 0) {
        return reportFailure(errorText, "Invalid gzip flags");
    }
    return true;
}

bool skipOptionalFields(HeaderCursor& header, std::string& errorText) {
    const std::uint8_t flags = header.member[flgOffset];
    if ((flags & gzipHasExtraField) != 0 && !header.skipExtraField()) {
        return reportFailure(errorText, "Truncated gzip extra field");
    }
    if ((flags & gzipHasFileName) != 0 && !header.skipZeroTerminated()) {
        return reportFailure(errorText, "Truncated gzip file name");
    }
    if ((flags & gzipHasComment) != 0 && !header.skipZeroTerminated()) {
        return reportFailure(errorText, "Truncated gzip comment");
    }
    return (flags & gzipHasHeaderChecksum) == 0 || checkHeaderChecksum(header, errorText);
}

struct GzipTrailer {
    std::uint32_t crc32;
    std::uint32_t isize;
};

// Before decoding, memory is reserved for at most this many times the payload's size. Text and code
// seldom expand more.
enum : std::uint64_t { commonExpansion = 8 };

// String streams whose text is one large block of memory.
using ContentInput = std::basic_istringstream<char, std::char_traits<char>, BlockAllocator<char>>;
using ContentOutput = std::basic_ostringstream<char, std::char_traits<char>, BlockAllocator<char>>;

GzipContent withRoomFor(std::uint64_t size) {
    GzipContent text;
    text.reserve(static_cast<std::size_t>(size));
    return text;
}

bool inflatePayload(GzipContent payload, const GzipTrailer& trailer, GzipContent& content,
                    std::string& errorText) {
    const std::uint64_t payloadSize = payload.size();
    ContentInput in(std::move(payload), std::ios::binary);
    // Reserving the usual size saves copying. More is not reserved, since the declared size may be
    // wrong: further memory is allocated as the output grows.
    ContentOutput out(
        withRoomFor(std::min<std::uint64_t>(trailer.isize, payloadSize * commonExpansion)),
        std::ios::binary);
    std::uint32_t crc = 0;
    if (!vesk::runtime::zip::inflateRaw(in, payloadSize, trailer.isize, out, crc, errorText)) {
        return false;
    }
    if (crc != trailer.crc32) return reportFailure(errorText, "Invalid gzip checksum");

    content = std::move(out).str();
    return true;
}

}  // namespace

bool gzipReadMember(ByteBuffer member, GzipContent& content, std::string& errorText) {
    if (!checkFixedFields(member, errorText)) return false;

    HeaderCursor header{member.data(), gzipHeaderSize, member.size() - gzipTrailerSize};
    if (!skipOptionalFields(header, errorText)) return false;
    if (header.position == header.payloadEnd) {
        return reportFailure(errorText, "Missing gzip DEFLATE payload");
    }

    const std::uint8_t* const payloadEnd = member.data() + header.payloadEnd;
    const GzipTrailer trailer{uint32At(payloadEnd), uint32At(payloadEnd + 4)};
    GzipContent payload = withRoomFor(header.payloadEnd - header.position);
    payload.append(reinterpret_cast<const char*>(member.data()) + header.position,
                   header.payloadEnd - header.position);
    member = ByteBuffer();
    return inflatePayload(std::move(payload), trailer, content, errorText);
}

}  // namespace vesk::io::archives
