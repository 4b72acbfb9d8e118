// SPDX-License-Identifier: MIT
// The mutator of the target gzip_file: changes a member's bytes, or the TAR stream inside it.
// Usually corrects the trailer and the header checksum afterwards.
#include <zlib.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>

#include "fuzz/inflate_model.h"
#include "fuzz/tar_mutation.h"
#include "tests/support/gzip_bytes.h"

namespace {

using vesk::testing::littleEndian;
using vesk::testing::zlibCrc32;
using Bytes = std::vector<std::uint8_t>;

// Returns the position after the optional fields, as far as it is known; 0 for a useless header.
std::size_t endOfOptionalFields(std::string_view member) {
    if (member.size() < 18) return 0;
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(member[i]); };
    std::size_t position = 10;
    if ((byte(3) & 4) != 0) position += 2 + byte(10) + std::size_t{256} * byte(11);
    for (const int flag : {8, 16}) {
        if ((byte(3) & flag) == 0) continue;
        const std::size_t zero = member.find('\0', position);
        if (zero == std::string_view::npos) return 0;
        position = zero + 1;
    }
    return position + 10 <= member.size() ? position : 0;
}

// Returns `member` with the right checksums for its other bytes.
std::string mended(std::string member) {
    const std::size_t fieldsEnd = endOfOptionalFields(member);
    if (fieldsEnd == 0) return member;
    std::size_t payload = fieldsEnd;
    if ((member[3] & 2) != 0) {
        member.replace(fieldsEnd, 2, littleEndian(zlibCrc32(member.substr(0, fieldsEnd)), 2));
        payload += 2;
    }
    const std::size_t trailer = member.size() - 8;
    if (payload >= trailer) return member;
    const std::string content =
        vesk::fuzzing::inflateWithZlib(member.substr(payload, trailer - payload)).content;
    return member.replace(trailer, 8, vesk::testing::gzipTrailer(content));
}

// Returns the member with a mutated TAR stream in it, compressed again.
std::string withOtherContent(const std::string& member, std::size_t maxSize, unsigned seed) {
    const std::size_t payload = std::max<std::size_t>(endOfOptionalFields(member), 10);
    if (member.size() < payload + 8) return member;
    const std::string content =
        vesk::fuzzing::inflateWithZlib(std::string_view(member).substr(payload)).content;
    if (content.size() > 65536) return member;
    Bytes archive(content.begin(), content.end());
    vesk::fuzzing::mutateTar(archive, 65536, seed);
    const std::string result =
        vesk::testing::gzipMember({reinterpret_cast<const char*>(archive.data()), archive.size()});
    return result.size() <= maxSize ? result : member;
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned seed) {
    std::mt19937 random(seed);
    Bytes bytes(data, data + size);
    const unsigned way = random() % 4;
    if (way != 0) vesk::fuzzing::mutateBytes(bytes, maxSize);
    std::string member(bytes.begin(), bytes.end());
    if (way == 0) member = withOtherContent(member, maxSize, static_cast<unsigned>(random()));
    if (way != 1 && member.size() <= 16384) member = mended(std::move(member));
    std::copy(member.begin(), member.end(), data);
    return member.size();
}
