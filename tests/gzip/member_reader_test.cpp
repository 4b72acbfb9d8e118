// SPDX-License-Identifier: MIT
// Tests of the gzip reader alone: which members it decodes, and how each failure is reported.
#include "gzip/member_reader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/gzip_bytes.h"
#include "tests/support/recording_host.h"

namespace {

using namespace std::literals;
using namespace vesk::io::archives;
using namespace vesk::testing;

/// Both texts are not empty before: a failure replaces the error, a success the content.
struct Reading {
    bool done = false;
    GzipContent content = "old";
    std::string errorText;
    std::vector<std::string> calls;
};

Reading readMember(const std::string& member, RecordingHost& host, std::string errorText = "") {
    // Exactly as large as the member, so that a sanitizer notices a byte read beyond it.
    ByteBuffer bytes;
    if (!member.empty()) std::memcpy(bytes.extend(member.size()), member.data(), member.size());
    Reading reading;
    reading.errorText = std::move(errorText);
    reading.done = gzipReadMember(std::move(bytes), reading.content, reading.errorText);
    reading.calls = host.calls;
    return reading;
}

Reading readMember(const std::string& member) {
    RecordingHost host;
    return readMember(member, host, "word");
}

void expectContent(const Reading& reading, const std::string& content) {
    EXPECT_TRUE(reading.done);
    EXPECT_EQ(std::string_view(reading.content), content);
    EXPECT_EQ(reading.errorText, "word");
}

void expectFailure(const Reading& reading, const char* message) {
    EXPECT_FALSE(reading.done);
    EXPECT_EQ(reading.content, "old");
    EXPECT_EQ(reading.errorText, message);
}

const std::string content = "the content of the member, the content of the member";

TEST(GzipReader, DecodesMembersWithEveryCombinationOfTheFiveFlags) {
    for (unsigned flags = 0; flags < 32; ++flags) {
        SCOPED_TRACE(flags);
        std::string header = gzipHeader(flags);
        if ((flags & 4) != 0) header += "\x05\0a\0b\0c"s;
        if ((flags & 8) != 0) header += "name\0"s;
        if ((flags & 16) != 0) header += "comment\0"s;
        if ((flags & 2) != 0) header = withHeaderChecksum(header);
        expectContent(readMember(gzipMember(content, header)), content);
    }
}

TEST(GzipReader, RefusesEveryReservedFlagWhateverElseIsSet) {
    for (unsigned flags = 32; flags < 256; ++flags) {
        SCOPED_TRACE(flags);
        const Reading reading = readMember(gzipMember(content, gzipHeader(flags)));
        expectFailure(reading, "Invalid gzip flags");
        EXPECT_EQ(reading.calls, Calls());
    }
}

TEST(GzipReader, DecodesWhatOtherWritersPutIntoAHeader) {
    const std::string extra256 = "\0\x01"s + std::string(256, 'e');
    const std::string extra65535 = "\xFF\xFF" + std::string(65535, '\0');
    struct Row {
        const char* name;
        std::string header;
    };
    const Row rows[] = {
        {"MTIME, XFL and OS are anything", "\x1F\x8B\x08\0\xFF\xFE\xFD\xFC\xFB\x03"s},
        {"FTEXT alone", gzipHeader(1)},
        {"empty extra field", gzipHeader(4) + "\0\0"s},
        {"extra field of 256 bytes", gzipHeader(4) + extra256},
        {"extra field of 65535 bytes", gzipHeader(4) + extra65535},
        {"empty file name", gzipHeader(8) + "\0"s},
        {"empty comment", gzipHeader(16) + "\0"s},
        {"empty name and comment", gzipHeader(24) + "\0\0"s},
        {"long file name", gzipHeader(8) + std::string(5000, 'n') + "\0"s},
        {"checksum over a long header",
         withHeaderChecksum(gzipHeader(2 | 4 | 16) + extra65535 + "comment\0"s)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        expectContent(readMember(gzipMember(content, row.header)), content);
    }
}

TEST(GzipReader, DecodesEveryTypeOfDeflateBlock) {
    const std::string stored = "\x01\x05\0\xFA\xFFhello"s;
    expectContent(readMember(gzipHeader() + stored + gzipTrailer("hello")), "hello");
    expectContent(readMember(gzipMember("hello")), "hello");
    const std::string megabyte(1 << 20, 'm');
    expectContent(readMember(gzipMember(megabyte)), megabyte);
    // Bytes of all values, in an order that needs dynamic codes.
    std::string mixed;
    for (unsigned i = 0; i < 100000; ++i)
        mixed += static_cast<char>(i * i >> i % 7);
    expectContent(readMember(gzipMember(mixed)), mixed);
}

TEST(GzipReader, DecodesAnEmptyMemberToEmptyContent) {
    expectContent(readMember(gzipHeader() + "\x01\0\0\xFF\xFF"s + gzipTrailer("")), "");
    expectContent(readMember(gzipMember("")), "");
}

TEST(GzipReader, PassesExactlyThePayloadAndTheSizeToTheInflater) {
    const std::string trailer = littleEndian(zlibCrc32("hello"), 4) + "\x05\0\0\0"s;
    const std::string stored = "\x01\x05\0\xFA\xFFhello"s;
    EXPECT_EQ(readMember(gzipHeader() + stored + trailer).calls,
              Calls{"inflateRaw(compressed=10, uncompressed=5, crc=0, error=word) = 1"});
    // Only FHCRC asks for a checksum: of the ten bytes before it, starting with a register of all
    // ones.
    EXPECT_EQ(readMember(withHeaderChecksum(gzipHeader(2)) + stored + trailer).calls,
              (Calls{"crc32Update(ffffffff, 10)",
                     "inflateRaw(compressed=10, uncompressed=5, crc=0, error=word) = 1"}));
    EXPECT_EQ(readMember(gzipHeader(8) + "n\0"s + stored + trailer).calls,
              Calls{"inflateRaw(compressed=10, uncompressed=5, crc=0, error=word) = 1"});
}

// The inflater decides whether the length is right. It gets all 32 bits of it, unsigned.
TEST(GzipReader, PassesTheSizeOnWithoutComparingIt) {
    RecordingHost host;
    host.inflateFailure = "as the inflater says";
    const std::string member = gzipHeader() + "p" + "\0\0\0\0\xFC\xFD\xFE\xFF"s;
    expectFailure(readMember(member, host, ""), "as the inflater says");
    EXPECT_EQ(host.calls,
              Calls{"inflateRaw(compressed=1, uncompressed=4294901244, crc=0, error=) = 0"});
}

TEST(GzipReader, PassesTheInflatersMessageOnEvenWhenItIsEmpty) {
    for (const std::string message : {"as the inflater says", ""}) {
        RecordingHost host;
        host.inflateFailure = message;
        expectFailure(readMember(gzipMember(content), host, "word"), message.c_str());
    }
}

TEST(GzipReader, RefusesWhatDoesNotBeginLikeAMember) {
    const std::string member = gzipMember(content);
    struct Row {
        const char* name;
        std::string bytes;
    };
    const Row rows[] = {
        {"nothing", ""},
        {"17 bytes of a member", member.substr(0, 17)},
        {"17 bytes without a payload", gzipHeader() + std::string(7, '\0')},
        {"17 bytes with a reserved flag", gzipHeader(32) + std::string(7, '\0')},
        {"17 bytes of anything", std::string(17, '!')},
        {"ID1", "\x1E" + member.substr(1)},
        {"ID2", "\x1F\x8A" + member.substr(2)},
        {"CM 0", "\x1F\x8B\0"s + member.substr(3)},
        {"CM 7", "\x1F\x8B\x07" + member.substr(3)},
        {"CM 9", "\x1F\x8B\x09" + member.substr(3)},
        {"CM 255", "\x1F\x8B\xFF" + member.substr(3)},
        {"plain text", "hello hello hello hello hello"},
        {"ID1 and ID2 exchanged", "\x8B\x1F" + member.substr(2)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Reading reading = readMember(row.bytes);
        expectFailure(reading, "Invalid gzip stream");
        EXPECT_EQ(reading.calls, Calls());
    }
}

TEST(GzipReader, ReportsAMissingPayload) {
    const std::string headers[] = {
        gzipHeader(),
        gzipHeader(1),
        gzipHeader(4) + "\0\0"s,
        gzipHeader(4) + "\x01\0e"s,
        gzipHeader(8) + "name\0"s,
        gzipHeader(16) + "comment\0"s,
        withHeaderChecksum(gzipHeader(2)),
    };
    for (const std::string& header : headers) {
        for (const char byte : {'\0', '\x55', '\xFF'}) {
            expectFailure(readMember(header + std::string(8, byte)),
                          "Missing gzip DEFLATE payload");
        }
    }
}

// The trailer contains zeros. A search that continued into it would find its end there.
TEST(GzipReader, NamesTheFieldInWhichAHeaderIsCutShort) {
    const std::string header =
        withHeaderChecksum(gzipHeader(31) + "\x03\0xyz"s + "name\0"s + "comment\0"s);
    ASSERT_EQ(header.size(), 30U);
    for (std::size_t length = 0; length <= header.size(); ++length) {
        SCOPED_TRACE(length);
        const char* const message = length < 10   ? "Invalid gzip stream"
                                    : length < 15 ? "Truncated gzip extra field"
                                    : length < 20 ? "Truncated gzip file name"
                                    : length < 28 ? "Truncated gzip comment"
                                    : length < 30 ? "Truncated gzip header checksum"
                                                  : "Missing gzip DEFLATE payload";
        const Reading reading = readMember(header.substr(0, length) + std::string(8, '\0'));
        expectFailure(reading, message);
        EXPECT_EQ(reading.calls, length < 30 ? Calls() : Calls{"crc32Update(ffffffff, 28)"});
    }
}

// Each optional field alone, so long that it extends into the last eight bytes.
TEST(GzipReader, DoesNotReadHeaderFieldsOutOfTheTrailer) {
    struct Row {
        std::string header;
        const char* message;
    };
    const Row rows[] = {
        {gzipHeader(4), "Truncated gzip extra field"},
        {gzipHeader(4) + "\0"s, "Truncated gzip extra field"},
        {gzipHeader(4) + "\x01\0"s, "Truncated gzip extra field"},
        {gzipHeader(4) + "\x09\0"s + "12345678", "Truncated gzip extra field"},
        {gzipHeader(4) + "\xFF\xFF" + std::string(65534, 'e'), "Truncated gzip extra field"},
        {gzipHeader(8), "Truncated gzip file name"},
        {gzipHeader(8) + "name", "Truncated gzip file name"},
        {gzipHeader(12) + "\x01\0e"s, "Truncated gzip file name"},
        {gzipHeader(16), "Truncated gzip comment"},
        {gzipHeader(16) + "comment", "Truncated gzip comment"},
        {gzipHeader(24) + "name\0"s, "Truncated gzip comment"},
        {gzipHeader(24) + "name\0comment"s, "Truncated gzip comment"},
        {gzipHeader(2), "Truncated gzip header checksum"},
        {gzipHeader(2) + "\0"s, "Truncated gzip header checksum"},
        {gzipHeader(10) + "name\0c"s, "Truncated gzip header checksum"},
    };
    for (const Row& row : rows) {
        expectFailure(readMember(row.header + std::string(8, '\0')), row.message);
    }
}

TEST(GzipReader, NoticesEveryFlippedBitOfACheckedHeader) {
    const std::string fields = gzipHeader(2 | 4) + "\x02\0xy"s;
    const std::string rest = rawDeflate(content) + gzipTrailer(content);
    const std::string header = withHeaderChecksum(fields);
    // MTIME, XFL and OS, the content of the extra field, and the checksum itself.
    for (std::size_t bit = 0; bit < header.size() * 8; ++bit) {
        const std::size_t byte = bit / 8;
        if (byte < 4 || byte == 10 || byte == 11) continue;
        std::string flipped = header;
        flipped[byte] = static_cast<char>(flipped[byte] ^ 1 << bit % 8);
        const Reading reading = readMember(flipped + rest);
        expectFailure(reading, "Invalid gzip header checksum");
        EXPECT_EQ(reading.calls, Calls{"crc32Update(ffffffff, 14)"}) << "bit " << bit;
    }
}

TEST(GzipReader, NoticesEveryFlippedBitOfTheStoredCrc) {
    const std::string member = gzipMember(content);
    for (std::size_t bit = 0; bit < 32; ++bit) {
        SCOPED_TRACE(bit);
        std::string flipped = member;
        char& byte = flipped[flipped.size() - 8 + bit / 8];
        byte = static_cast<char>(byte ^ 1 << bit % 8);
        expectFailure(readMember(flipped), "Invalid gzip checksum");
    }
}

TEST(GzipReader, ComparesTheCrcThatTheInflaterGives) {
    RecordingHost host;
    host.inflateCrc = 0x12345678;
    expectFailure(readMember(gzipMember(content), host, "word"), "Invalid gzip checksum");
    const std::string member = gzipHeader() + rawDeflate("hello") + "\x78\x56\x34\x12\x05\0\0\0"s;
    expectContent(readMember(member, host, "word"), "hello");
}

// One member only, which fills the file: the last eight bytes are its trailer, and everything
// between them and the header is its payload. Two equal members end in a trailer that matches the
// first one, so only the inflater can notice the second.
TEST(GzipReader, TreatsAllButTheLastEightBytesAsOnePayload) {
    const std::string member = gzipHeader() + "\x01\x05\0\xFA\xFFhello"s + gzipTrailer("hello");
    ASSERT_EQ(member.size(), 28U);
    struct Row {
        const char* name;
        std::string bytes;
        const char* message;
        const char* call;
    };
    const Row rows[] = {
        {"the same member twice", member + member, "Unexpected data after DEFLATE stream",
         "inflateRaw(compressed=38, uncompressed=5, crc=0, error=word) = 0"},
        {"another member behind",
         member + gzipHeader() + "\x01\x07\0\xF8\xFFgoodbye"s + gzipTrailer("goodbye"),
         "Unexpected data after DEFLATE stream",
         "inflateRaw(compressed=40, uncompressed=7, crc=0, error=word) = 0"},
        {"the trailer again", member + gzipTrailer("hello"), "Unexpected data after DEFLATE stream",
         "inflateRaw(compressed=18, uncompressed=5, crc=0, error=word) = 0"},
        {"one byte behind", member + gzipTrailer("hello").substr(7),
         "DEFLATE output is longer than its declared size",
         "inflateRaw(compressed=11, uncompressed=0, crc=0, error=word) = 0"},
        {"512 NULs behind", member + std::string(512, '\0'),
         "DEFLATE output is longer than its declared size",
         "inflateRaw(compressed=522, uncompressed=0, crc=0, error=word) = 0"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Reading reading = readMember(row.bytes);
        expectFailure(reading, row.message);
        EXPECT_EQ(reading.calls, Calls{row.call});
    }
}

TEST(GzipReader, ReportsTheFirstTestedOfTwoFaults) {
    const std::string rest = rawDeflate(content) + gzipTrailer(content);
    const std::string wrongSum = gzipHeader(2) + "\0\0"s;
    const std::string notDeflate = "\x07";
    struct Row {
        const char* name;
        std::string bytes;
        const char* message;
    };
    const Row rows[] = {
        {"too short, reserved flag", gzipHeader(32).substr(0, 10) + "1234567",
         "Invalid gzip stream"},
        {"ID1, reserved flag", "\x1E" + gzipHeader(32).substr(1) + rest, "Invalid gzip stream"},
        {"CM, extra field", "\x1F\x8B\x07" + gzipHeader(4).substr(3) + std::string(8, '\0'),
         "Invalid gzip stream"},
        {"reserved flag, extra field", gzipHeader(36) + std::string(8, '\0'), "Invalid gzip flags"},
        {"reserved flag, payload", gzipHeader(64) + std::string(8, '\0'), "Invalid gzip flags"},
        {"extra field, file name", gzipHeader(12) + std::string(8, '\0'),
         "Truncated gzip extra field"},
        {"extra field, wrong crc", gzipHeader(4) + "\xFF\xFF" + rest, "Truncated gzip extra field"},
        {"file name, comment", gzipHeader(24) + std::string(8, '\0'), "Truncated gzip file name"},
        {"comment, header checksum", gzipHeader(18) + std::string(8, '\0'),
         "Truncated gzip comment"},
        {"header checksum cut short, payload", gzipHeader(2) + std::string(8, '\0'),
         "Truncated gzip header checksum"},
        {"header checksum, payload", wrongSum + gzipTrailer(""), "Invalid gzip header checksum"},
        {"header checksum, DEFLATE data", wrongSum + notDeflate + gzipTrailer(content),
         "Invalid gzip header checksum"},
        {"payload, crc", gzipHeader() + std::string(8, '\xFF'), "Missing gzip DEFLATE payload"},
        {"DEFLATE data, crc", gzipHeader() + notDeflate + std::string(8, '\xFF'),
         "Invalid DEFLATE data"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        expectFailure(readMember(row.bytes), row.message);
    }
}

}  // namespace
