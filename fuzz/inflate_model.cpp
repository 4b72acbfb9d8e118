// SPDX-License-Identifier: MIT
// zlib as the second opinion on raw DEFLATE data.
#include "fuzz/inflate_model.h"

#include <zlib.h>

#include <array>

#include "fuzz/block_codes.h"
#include "fuzz/require.h"

namespace vesk::fuzzing {

namespace {

// zlib sets these bits of data_type to say where it has stopped.
enum : int { afterBlock = 128, afterBlockHeader = 256 };

// A stop within one byte looks like a call without progress; at most three follow each other.
constexpr int enoughIdleCalls = 4;

// Only the message of zlib says what is wrong with the data.
bool isAboutCodes(const char* message) {
    return message != nullptr && std::string_view(message).ends_with(" set");
}

Inflated::End endOf(int status, const char* message, bool isOverfull) {
    if (status == Z_STREAM_END) return Inflated::End::complete;
    if (status == Z_BUF_ERROR) return Inflated::End::truncated;
    return isAboutCodes(message) && !isOverfull ? Inflated::End::doubtful : Inflated::End::invalid;
}

// Tells whether zlib refuses every value of the next byte.
bool refusesEveryByte(z_stream& stream) {
    for (unsigned value = 0; value < 256; ++value) {
        z_stream copy{};
        require(inflateCopy(&copy, &stream) == Z_OK, "zlib can be copied");
        auto byte = static_cast<Bytef>(value);
        std::array<Bytef, 4096> output;
        copy.next_in = &byte;
        copy.avail_in = 1;
        copy.next_out = output.data();
        copy.avail_out = output.size();
        const int status = inflate(&copy, Z_NO_FLUSH);
        inflateEnd(&copy);
        if (status != Z_DATA_ERROR) return false;
    }
    return true;
}

// Returns the position of zlib in `packed` after a block, in bits.
std::size_t bitPosition(std::string_view packed, const z_stream& stream) {
    constexpr int unusedBits = 7;
    return (packed.size() - stream.avail_in) * 8 -
           static_cast<std::size_t>(stream.data_type & unusedBits);
}

}  // namespace

Inflated inflateWithZlib(std::string_view packed) {
    z_stream stream{};
    require(inflateInit2(&stream, -15) == Z_OK, "zlib is ready");
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
    stream.avail_in = static_cast<uInt>(packed.size());

    Inflated result{};
    result.content.reserve(packed.size());
    result.inBlockHeader = true;
    std::array<char, 65536> piece;
    int status = Z_OK;
    std::size_t block = 0;
    for (int idle = 0; status == Z_OK || (status == Z_BUF_ERROR && idle < enoughIdleCalls);) {
        stream.next_out = reinterpret_cast<Bytef*>(piece.data());
        stream.avail_out = piece.size();
        status = inflate(&stream, Z_TREES);
        result.content.append(piece.data(), piece.size() - stream.avail_out);
        if ((stream.data_type & afterBlock) != 0) {
            result.inBlockHeader = true;
            block = bitPosition(packed, stream);
        }
        if ((stream.data_type & afterBlockHeader) != 0) result.inBlockHeader = false;
        idle = status == Z_BUF_ERROR ? idle + 1 : 0;
    }
    result.end = endOf(status, stream.msg, hasOverfullCode(packed, block));
    result.hopeless = result.end == Inflated::End::truncated && refusesEveryByte(stream);
    result.unused = stream.avail_in;
    inflateEnd(&stream);
    return result;
}

std::set<std::string> refusalsOf(const Inflated& inflated, std::uint64_t declaredSize) {
    const std::uint64_t size = inflated.content.size();
    std::set<std::string> refusals;
    if (size > declaredSize) refusals.insert("DEFLATE output is longer than its declared size");
    switch (inflated.end) {
        // A decoder may judge a block's header bit by bit or when it is complete. So it may a code.
        case Inflated::End::invalid:
            refusals.insert("Invalid DEFLATE data");
            if (inflated.inBlockHeader) refusals.insert("Truncated DEFLATE data");
            break;
        case Inflated::End::truncated:
            refusals.insert("Truncated DEFLATE data");
            if (inflated.inBlockHeader || inflated.hopeless)
                refusals.insert("Invalid DEFLATE data");
            break;
        case Inflated::End::doubtful:
            refusals.insert({"Invalid DEFLATE data", "Truncated DEFLATE data",
                             "Unexpected data after DEFLATE stream",
                             "DEFLATE output is longer than its declared size",
                             "DEFLATE output is shorter than its declared size"});
            break;
        case Inflated::End::complete:
            if (!refusals.empty()) break;
            if (inflated.unused != 0) {
                refusals.insert("Unexpected data after DEFLATE stream");
            } else if (size < declaredSize) {
                refusals.insert("DEFLATE output is shorter than its declared size");
            }
    }
    return refusals;
}

}  // namespace vesk::fuzzing
