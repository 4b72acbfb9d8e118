// SPDX-License-Identifier: MIT
// Tests of writing a gzip member: its bytes, how content is cut into blocks, and that another
// decoder accepts it.
#include "gzip/member_writer.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/buffer_text.h"
#include "tests/support/gzip_bytes.h"
#include "tests/support/recording_host.h"

namespace {

using namespace std::literals;
using namespace vesk::io::archives;
using namespace vesk::testing;

std::span<const std::uint8_t> asBytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::string memberOf(std::string_view content) {
    return asText(gzipWriteMember(asBytes(content)));
}

/// Returns `size` bytes in which neighbouring bytes and neighbouring blocks differ.
std::string exampleContent(std::size_t size) {
    std::string content(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        content[i] = static_cast<char>(i % 251);
    }
    return content;
}

// Prints only the first difference, since the blocks are too large to print.
void expectSame(const std::string& actual, const std::string& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < actual.size(); ++i) {
        ASSERT_EQ(static_cast<int>(actual[i]), static_cast<int>(expected[i])) << "offset " << i;
    }
}

TEST(GzipMemberWriter, WritesTwentyThreeBytesForNoContent) {
    RecordingHost host;
    expectSame(memberOf(""),
               "\x1F\x8B\x08\x00\x00\x00\x00\x00\x00\xFF"
               "\x01\x00\x00\xFF\xFF"
               "\x00\x00\x00\x00\x00\x00\x00\x00"s);
    EXPECT_EQ(host.calls, Calls{"crc32Update(ffffffff, 0)"});
}

TEST(GzipMemberWriter, WritesHeaderBlockCrcAndSizeLowestByteFirst) {
    RecordingHost host;
    expectSame(memberOf("123456789"),
               "\x1F\x8B\x08\x00\x00\x00\x00\x00\x00\xFF"
               "\x01\x09\x00\xF6\xFF"
               "123456789"
               "\x26\x39\xF4\xCB\x09\x00\x00\x00"s);
    EXPECT_EQ(host.calls, Calls{"crc32Update(ffffffff, 9)"});
}

TEST(GzipMemberWriter, CutsContentIntoBlocksOf65535Bytes) {
    const std::string full = "\x00\xFF\xFF\x00\x00"s;
    const std::string lastFull = "\x01\xFF\xFF\x00\x00"s;
    struct Piece {
        std::string framing;
        std::size_t count;
    };
    struct Row {
        std::size_t size;
        std::vector<Piece> pieces;
        std::string isize;
    };
    const Row rows[] = {
        {1, {{"\x01\x01\x00\xFE\xFF"s, 1}}, "\x01\x00\x00\x00"s},
        {255, {{"\x01\xFF\x00\x00\xFF"s, 255}}, "\xFF\x00\x00\x00"s},
        {256, {{"\x01\x00\x01\xFF\xFE"s, 256}}, "\x00\x01\x00\x00"s},
        {1024, {{"\x01\x00\x04\xFF\xFB"s, 1024}}, "\x00\x04\x00\x00"s},
        {65534, {{"\x01\xFE\xFF\x01\x00"s, 65534}}, "\xFE\xFF\x00\x00"s},
        {65535, {{lastFull, 65535}}, "\xFF\xFF\x00\x00"s},
        {65536, {{full, 65535}, {"\x01\x01\x00\xFE\xFF"s, 1}}, "\x00\x00\x01\x00"s},
        {131069, {{full, 65535}, {"\x01\xFE\xFF\x01\x00"s, 65534}}, "\xFD\xFF\x01\x00"s},
        {131070, {{full, 65535}, {lastFull, 65535}}, "\xFE\xFF\x01\x00"s},
        {131071, {{full, 65535}, {full, 65535}, {"\x01\x01\x00\xFE\xFF"s, 1}}, "\xFF\xFF\x01\x00"s},
        {196605, {{full, 65535}, {full, 65535}, {lastFull, 65535}}, "\xFD\xFF\x02\x00"s},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.size);
        const std::string content = exampleContent(row.size);
        std::string expected = "\x1F\x8B\x08\x00\x00\x00\x00\x00\x00\xFF"s;
        std::size_t offset = 0;
        for (const Piece& piece : row.pieces) {
            expected.append(piece.framing).append(content, offset, piece.count);
            offset += piece.count;
        }
        RecordingHost host;
        expectSame(memberOf(content), expected + littleEndian(zlibCrc32(content), 4) + row.isize);
        EXPECT_EQ(host.calls, Calls{"crc32Update(ffffffff, " + std::to_string(row.size) + ")"});
    }
}

TEST(GzipMemberWriter, NeverOutgrowsTheReservedBuffer) {
    struct Row {
        std::size_t size;
        std::size_t memberSize;
        std::size_t capacity;
    };
    const Row rows[] = {
        {0, 23, 32},           {1024, 1047, 1056},    {65534, 65557, 65566},
        {65535, 65558, 65572}, {65536, 65564, 65573}, {131070, 131098, 131112},
    };
    RecordingHost host;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.size);
        const ByteBuffer member = gzipWriteMember(asBytes(exampleContent(row.size)));
        EXPECT_EQ(member.size(), row.memberSize);
        EXPECT_EQ(member.capacity(), row.capacity);
    }
}

TEST(GzipMemberWriter, IsUnderstoodByAnotherDecoder) {
    RecordingHost host;
    for (const std::size_t size : {0U, 1U, 1536U, 65535U, 65536U, 131070U, 1000000U}) {
        SCOPED_TRACE(size);
        const std::string content = exampleContent(size);
        EXPECT_TRUE(gunzip(memberOf(content), size + 1) == content);
    }
}

TEST(GzipMemberWriter, GivesEqualMembersForEqualContent) {
    RecordingHost host;
    EXPECT_TRUE(memberOf(exampleContent(100000)) == memberOf(exampleContent(100000)));
}

TEST(GzipMemberWriter, ThrowsALengthErrorForContentThatNoMemberCanHold) {
    RecordingHost host;
    const std::size_t tooMuch = std::numeric_limits<std::ptrdiff_t>::max();
    try {
        // The content is not read before the memory is reserved.
        gzipWriteMember({asBytes("x").data(), tooMuch});
        FAIL() << "nothing thrown";
    } catch (const std::length_error& error) {
        EXPECT_STREQ(error.what(), "vector::reserve");
    }
    EXPECT_EQ(host.calls, Calls());
}

// With 32 bits there is no content of such a size.
#if SIZE_MAX > UINT32_MAX

/// Zero bytes that need no memory of their own.
class ManyZeros {
public:
    explicit ManyZeros(std::size_t size)
        : size_(size), data_(mmap(nullptr, size, PROT_READ, flags, -1, 0)) {
        if (data_ == MAP_FAILED) throw std::runtime_error("mmap failed");
        madvise(data_, size, MADV_HUGEPAGE);
    }
    ~ManyZeros() { munmap(data_, size_); }
    ManyZeros(const ManyZeros&) = delete;
    ManyZeros& operator=(const ManyZeros&) = delete;

    std::span<const std::uint8_t> bytes() const {
        return {static_cast<const std::uint8_t*>(data_), size_};
    }

private:
    static constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
    std::size_t size_;
    void* data_;
};

TEST(GzipMemberWriter, StoresTheSizeModulo4GiBAndGoesOnCutting) {
    const ManyZeros content(4294967296 + 1537);
    RecordingHost host;
    const ByteBuffer member = gzipWriteMember(content.bytes());
    EXPECT_EQ(host.calls, Calls{"crc32Update(ffffffff, 4294968833)"});
    ASSERT_EQ(member.size(), 4295296541U);

    const auto bytesAt = [&](std::size_t offset, std::size_t count) {
        return std::string(member.begin() + offset, member.begin() + offset + count);
    };
    for (std::size_t block = 0; block < 65537; ++block) {
        ASSERT_EQ(bytesAt(10 + block * 65540, 5), "\x00\xFF\xFF\x00\x00"s) << block;
    }
    EXPECT_EQ(bytesAt(4295294990, 5), "\x01\x02\x06\xFD\xF9"s);
    EXPECT_EQ(bytesAt(4295296533, 8), "\x75\xF8\x68\x27\x01\x06\x00\x00"s);
}

#endif

}  // namespace
