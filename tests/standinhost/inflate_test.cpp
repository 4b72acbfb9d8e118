// SPDX-License-Identifier: MIT
// The raw DEFLATE decoder: what it decodes, what it refuses with which message, how much memory it
// takes.
#include <gtest/gtest.h>
#include <pthread.h>
#include <zlib.h>

#include <algorithm>
#include <istream>
#include <limits>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include "module/host/host_runtime.h"
#include "tests/standinhost/allocation_record.h"
#include "tests/support/gzip_bytes.h"

namespace {

using namespace std::literals;
using vesk::testing::rawDeflate;

constexpr const char* invalid = "Invalid DEFLATE data";
constexpr const char* truncated = "Truncated DEFLATE data";
constexpr const char* tooShort = "DEFLATE output is shorter than its declared size";
constexpr const char* tooLong = "DEFLATE output is longer than its declared size";
constexpr const char* leftOver = "Unexpected data after DEFLATE stream";
constexpr const char* cannotStore = "Cannot store DEFLATE output";

/// "hello hello hello" with a back reference, in a block of fixed codes.
const std::string helloFixed("\xcb\x48\xcd\xc9\xc9\x57\xc8\x40\x90\x00", 10);
/// "abc" in a stored block.
const std::string abcStored("\x01\x03\x00\xfc\xff\x61\x62\x63", 8);
/// No content, in a block of fixed codes and in a stored block.
const std::string emptyFixed("\x03\x00", 2);
const std::string emptyStored("\x01\x00\x00\xff\xff", 5);

struct Result {
    bool ok;
    std::uint32_t crc;
    std::string error;
    std::string output;
};

Result inflate(const std::string& data, std::uint64_t compressedSize, std::uint64_t declaredSize) {
    std::istringstream in(data, std::ios::binary);
    std::ostringstream out(std::ios::binary);
    Result result{false, 0, "", ""};
    result.ok = vesk::runtime::zip::inflateRaw(in, compressedSize, declaredSize, out, result.crc,
                                               result.error);
    result.output = out.str();
    return result;
}

Result inflate(const std::string& data, std::uint64_t declaredSize) {
    return inflate(data, data.size(), declaredSize);
}

void expectFailure(const Result& result, const char* message) {
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.error, message);
}

std::string randomBytes(std::size_t count) {
    std::string bytes(count, '\0');
    std::uint32_t value = 1;
    for (char& byte : bytes)
        byte = static_cast<char>((value = value * 1664525 + 1013904223) >> 24);
    return bytes;
}

std::string text(std::size_t count) {
    std::string words;
    for (std::uint32_t number = 0; words.size() < count; ++number)
        words += "line " + std::to_string(number * number) + "\n";
    return words.substr(0, count);
}

void expectDecodes(const std::string& data, const std::string& content) {
    const Result result = inflate(data, content.size());
    EXPECT_TRUE(result.ok);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.crc,
              crc32_z(0, reinterpret_cast<const Bytef*>(content.data()), content.size()));
    EXPECT_TRUE(result.output == content) << result.output.size() << " bytes came out";
}

TEST(Inflate, DecodesKnownStreamsAndGivesTheFinishedCrc) {
    struct Row {
        const char* name;
        std::string data;
        std::string content;
        std::uint32_t crc;
    };
    const Row rows[] = {
        {"nothing, fixed codes", emptyFixed, "", 0},
        {"nothing, stored", emptyStored, "", 0},
        {"stored", abcStored, "abc", 0x352441c2},
        {"fixed codes", helloFixed, "hello hello hello", 0xe5f98880},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Result result = inflate(row.data, row.content.size());
        EXPECT_TRUE(result.ok);
        EXPECT_EQ(result.output, row.content);
        EXPECT_EQ(result.crc, row.crc);
    }
}

TEST(Inflate, DecodesWhatZlibWrites) {
    const std::string contents[] = {"",
                                    "a",
                                    text(70000),
                                    randomBytes(70000),
                                    text(700000),
                                    randomBytes(600000),
                                    std::string(1000000, '\0')};
    for (const int level : {0, 1, 6, 9}) {
        for (const int strategy : {Z_DEFAULT_STRATEGY, Z_FIXED, Z_HUFFMAN_ONLY, Z_RLE}) {
            for (const std::string& content : contents) {
                SCOPED_TRACE("level " + std::to_string(level) + ", strategy " +
                             std::to_string(strategy) + ", " + std::to_string(content.size()));
                expectDecodes(rawDeflate(content, level, strategy), content);
            }
        }
    }
}

TEST(Inflate, DecodesOutputsThatEndAtAnyPlaceOfAPiece) {
    for (const std::size_t edge : {std::size_t{65536}, std::size_t{262144}, std::size_t{524288}}) {
        for (std::size_t size = edge - 3; size <= edge + 3; ++size) {
            SCOPED_TRACE(size);
            const std::string content = text(size);
            expectDecodes(rawDeflate(content, 6), content);
            expectDecodes(rawDeflate(content, 0), content);
        }
    }
}

TEST(Inflate, JudgesInputsThatEndAtAnyPlaceOfAPiece) {
    const std::size_t edge = 262144;
    for (std::size_t size = edge - 40; size <= edge + 10; ++size) {
        SCOPED_TRACE(size);
        const std::string content = randomBytes(size);
        const std::string data = rawDeflate(content, 0);
        expectDecodes(data, content);
        expectFailure(inflate(data + "x", size), leftOver);
        expectFailure(inflate(data.substr(0, data.size() - 1), size), truncated);
        expectFailure(inflate(data, data.size() + 1, size), truncated);
    }
}

TEST(Inflate, RefusesAnOutputOfAnotherSize) {
    struct Row {
        std::uint64_t declared;
        const char* message;
    };
    const std::uint64_t twoTo32 = std::uint64_t{1} << 32;
    const Row rows[] = {
        {0, tooLong},
        {1, tooLong},
        {16, tooLong},
        {18, tooShort},
        {twoTo32, tooShort},
        {twoTo32 + 17, tooShort},
        {std::numeric_limits<std::uint64_t>::max(), tooShort},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.declared);
        expectFailure(inflate(helloFixed, row.declared), row.message);
    }
    expectFailure(inflate(emptyFixed, 1), tooShort);
    const std::string content = text(600000);
    expectFailure(inflate(rawDeflate(content, 6), 599999), tooLong);
    expectFailure(inflate(rawDeflate(content, 6), 600001), tooShort);
}

TEST(Inflate, WritesNoMoreThanTheDeclaredSize) {
    const std::string bomb = rawDeflate(std::string(16 << 20, '\0'), 9);
    const std::uint64_t declaredSizes[] = {0, 1, 1000, 262143, 262144, 262145};
    for (const std::uint64_t declared : declaredSizes) {
        SCOPED_TRACE(declared);
        const Result result = inflate(bomb, declared);
        expectFailure(result, tooLong);
        EXPECT_LE(result.output.size(), declared);
    }
}

TEST(Inflate, StopsReadingOnceTheOutputIsTooLong) {
    const std::string data = rawDeflate(randomBytes(4 << 20), 0);
    std::istringstream in(data, std::ios::binary);
    std::ostringstream out;
    std::uint32_t crc = 0;
    std::string error;
    EXPECT_FALSE(vesk::runtime::zip::inflateRaw(in, data.size(), 10, out, crc, error));
    EXPECT_EQ(error, tooLong);
    EXPECT_LE(in.tellg(), 1 << 20);
}

TEST(Inflate, RefusesEachTruncation) {
    const std::string content = text(2000);
    struct Row {
        const char* name;
        std::string data;
        std::size_t size;
    };
    const Row rows[] = {
        {"fixed codes", helloFixed, 17},
        {"stored", abcStored, 3},
        {"dynamic codes", rawDeflate(content, 9), 2000},
        {"codes without references", rawDeflate(content, 9, Z_HUFFMAN_ONLY), 2000},
        {"run lengths", rawDeflate(std::string(2000, 'a'), 9), 2000},
    };
    for (const Row& row : rows) {
        for (std::size_t length = 1; length < row.data.size(); ++length) {
            SCOPED_TRACE(std::string(row.name) + ", " + std::to_string(length) + " bytes");
            const std::string front = row.data.substr(0, length);
            expectFailure(inflate(front, row.size), truncated);
            expectFailure(inflate(row.data, length, row.size), truncated);
        }
    }
}

TEST(Inflate, RefusesAStreamThatHoldsFewerBytesThanDeclared) {
    for (std::size_t length = 0; length <= helloFixed.size(); ++length) {
        SCOPED_TRACE(length);
        expectFailure(inflate(helloFixed.substr(0, length), 11, 17), truncated);
    }
    expectFailure(inflate(helloFixed, std::numeric_limits<std::uint64_t>::max(), 17), truncated);
}

TEST(Inflate, RefusesAStreamThatCannotBeRead) {
    std::istringstream in(helloFixed);
    in.setstate(std::ios::failbit);
    std::ostringstream out;
    std::uint32_t crc = 0;
    std::string error;
    EXPECT_FALSE(vesk::runtime::zip::inflateRaw(in, 10, 17, out, crc, error));
    EXPECT_EQ(error, truncated);
}

TEST(Inflate, RefusesBrokenData) {
    struct Row {
        const char* name;
        std::vector<std::uint8_t> bytes;
    };
    const Row rows[] = {
        {"reserved block type", {0x07}},
        {"reserved block type after a block", {0x00, 0x00, 0x00, 0xff, 0xff, 0x07}},
        {"NLEN is not the complement of LEN", {0x01, 0x01, 0x00, 0x00, 0x00, 0x41}},
        {"reference before the start", {0x03, 0x02}},
        {"reference one byte too far back", {0x4b, 0x04, 0x42}},
        {"reserved distance code", {0x4b, 0x04, 0x3e}},
        {"reserved length code 286", {0x4b, 0x1c, 0x03}},
        {"reserved length code 287", {0x4b, 0x1c, 0x07}},
        {"too many short code lengths", {0x05, 0x00, 0x92, 0x04}},
        {"repeated length without a first", {0x05, 0x00, 0x02, 0x24}},
        {"more code lengths than codes", {0x05, 0x00, 0x80, 0xe4, 0xff, 0x1f}},
        {"more literals than codes",
         {0x05, 0xe0, 0x01, 0x09, 0x00, 0x00, 0x00, 0x80, 0x20, 0x6c, 0xd3, 0xff, 0xa3, 0x14}},
        {"more distances than codes",
         {0x05, 0xe2, 0x01, 0x09, 0x00, 0x00, 0x00, 0x80, 0x20, 0x6c, 0xf3, 0xff, 0x29, 0x55,
          0x01}},
        {"no code for the end of the block",
         {0x05, 0xe0, 0x01, 0x09, 0x00, 0x00, 0x00, 0x80, 0x20, 0x6c, 0xd3, 0xff, 0xa7, 0x04}},
        {"code for 286 after other codes",
         {0x4b, 0x64, 0x18, 0x38, 0x60, 0x00, 0x07, 0x86, 0xa8, 0xe2, 0xc6, 0x44, 0x12, 0xa7, 0xa3,
          0xc6}},
        {"garbage", std::vector<std::uint8_t>(40, 0xff)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::string data(row.bytes.begin(), row.bytes.end());
        data.append(40, '\0');
        expectFailure(inflate(data, 1000), invalid);
    }
}

// zlib refuses such a block, except for a single distance.
TEST(Inflate, AcceptsIncompleteSetsOfCodes) {
    expectDecodes("\x05\xe0\x01\x09\x00\x00\x00\x80\x20\x6c\xeb\xff\xa9\x44"s, "A");
    expectDecodes("\x05\xe1\x01\x09\x00\x00\x00\x80\x20\x6c\xf3\xff\x29\x4b"s, "A");
    expectDecodes("\x05\xe0\x01\x09\x00\x00\x00\x80\x20\x6c\xf3\xff\x29\x15"s, "A");
}

TEST(Inflate, RefusesBytesAfterTheFinalBlock) {
    struct Row {
        const char* name;
        std::string data;
        std::size_t size;
    };
    const std::string content = text(300000);
    const Row rows[] = {
        {"nothing, fixed codes", emptyFixed, 0},
        {"nothing, stored", emptyStored, 0},
        {"fixed codes", helloFixed, 17},
        {"stored", abcStored, 3},
        {"dynamic codes", rawDeflate(content, 6), 300000},
    };
    for (const Row& row : rows) {
        for (std::size_t count = 1; count <= 20; ++count) {
            SCOPED_TRACE(std::string(row.name) + " and " + std::to_string(count) + " bytes");
            expectFailure(inflate(row.data + std::string(count, '\0'), row.size), leftOver);
            expectFailure(inflate(row.data + std::string(count, '\3'), row.size), leftOver);
        }
    }
}

TEST(Inflate, RefusesASecondStreamAfterTheFirst) {
    expectFailure(inflate(helloFixed + abcStored, 17), leftOver);
    expectFailure(inflate(helloFixed + abcStored, 20), leftOver);
}

TEST(Inflate, ReadsNothingBeyondTheCompressedSize) {
    std::istringstream in(helloFixed + "more");
    std::ostringstream out;
    std::uint32_t crc = 0;
    std::string error;
    EXPECT_TRUE(vesk::runtime::zip::inflateRaw(in, 10, 17, out, crc, error));
    EXPECT_EQ(in.tellg(), 10);
}

TEST(Inflate, StartsAtTheStreamsPosition) {
    std::istringstream in("head" + helloFixed);
    in.seekg(4);
    std::ostringstream out;
    std::uint32_t crc = 0;
    std::string error;
    EXPECT_TRUE(vesk::runtime::zip::inflateRaw(in, 10, 17, out, crc, error));
    EXPECT_EQ(out.str(), "hello hello hello");
}

/// Yields a string one byte at a time.
class ByteByByte : public std::streambuf {
public:
    explicit ByteByByte(std::string bytes) : bytes_(std::move(bytes)) {}

protected:
    int_type underflow() override {
        if (position_ == bytes_.size()) return traits_type::eof();
        setg(&bytes_[position_], &bytes_[position_], &bytes_[position_] + 1);
        return traits_type::to_int_type(bytes_[position_++]);
    }

private:
    std::string bytes_;
    std::size_t position_ = 0;
};

TEST(Inflate, ReadsAStreamThatComesInSmallPortions) {
    const std::string content = text(300000);
    const std::string data = rawDeflate(content, 6);
    ByteByByte buffer(data);
    std::istream in(&buffer);
    std::ostringstream out;
    std::uint32_t crc = 0;
    std::string error;
    EXPECT_TRUE(vesk::runtime::zip::inflateRaw(in, data.size(), content.size(), out, crc, error));
    EXPECT_TRUE(out.str() == content);
}

/// Accepts a number of bytes and then no more.
class LimitedSink : public std::streambuf {
public:
    explicit LimitedSink(std::streamsize limit) : limit_(limit) {}

protected:
    std::streamsize xsputn(const char*, std::streamsize count) override {
        const std::streamsize taken = std::min(count, limit_);
        limit_ -= taken;
        return taken;
    }
    int_type overflow(int_type) override { return traits_type::eof(); }

private:
    std::streamsize limit_;
};

TEST(Inflate, ReportsAnOutputThatCannotGrow) {
    const std::string content = text(600000);
    const std::string data = rawDeflate(content, 6);
    for (const std::streamsize limit : {0, 1, 262144, 599999}) {
        SCOPED_TRACE(limit);
        std::istringstream in(data);
        LimitedSink sink(limit);
        std::ostream out(&sink);
        std::uint32_t crc = 0;
        std::string error;
        EXPECT_FALSE(
            vesk::runtime::zip::inflateRaw(in, data.size(), content.size(), out, crc, error));
        EXPECT_EQ(error, cannotStore);
    }
}

TEST(Inflate, ReplacesTheErrorText) {
    std::istringstream in(helloFixed);
    std::ostringstream out;
    std::uint32_t crc = 0;
    std::string error = "before";
    EXPECT_FALSE(vesk::runtime::zip::inflateRaw(in, 10, 3, out, crc, error));
    EXPECT_EQ(error, tooLong);
}

TEST(Inflate, LeavesTheErrorTextAloneOnSuccess) {
    std::istringstream in(helloFixed);
    std::ostringstream out;
    std::uint32_t crc = 0;
    std::string error = "before";
    EXPECT_TRUE(vesk::runtime::zip::inflateRaw(in, 10, 17, out, crc, error));
    EXPECT_EQ(error, "before");
}

TEST(Inflate, AllocatesTheSameWhateverTheDeclaredSizes) {
    forgetAllocations();
    expectFailure(inflate(helloFixed, std::uint64_t{1} << 31), tooShort);
    expectFailure(inflate(helloFixed, std::uint64_t{1} << 31, 17), truncated);
    EXPECT_GT(largestAllocation(), 65536U) << "the decoder's allocations were not seen";
    EXPECT_LT(largestAllocation(), 1048576U);
}

void* inflateHello(void* ok) {
    *static_cast<bool*>(ok) = inflate(helloFixed, 17).ok;
    return nullptr;
}

TEST(Inflate, WorksWithASmallStack) {
    bool ok = false;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 128 * 1024), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, inflateHello, &ok), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_TRUE(ok);
}

}  // namespace
