// SPDX-License-Identifier: MIT
// Tests of writing the header block: every byte of whole blocks, and how long names are split
// between two fields.
#include "tar/header_block.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/archived_bytes.h"
#include "tests/support/recording_host.h"

namespace {

using namespace std::literals;
using namespace vesk::io::archives;
using namespace vesk::testing;

/// The block of an entry, and the calls that its construction made.
struct Built {
    std::string block;
    Calls calls;
};

Built build(std::string_view name, std::uint64_t size) {
    // Shows bytes that were not written.
    std::vector<std::uint8_t> block(512, 0xA5);
    RecordingHost host;
    tarBuildHeaderBlock(name, size, std::span<std::uint8_t, 512>(block));
    return {std::string(block.begin(), block.end()), host.calls};
}

struct Field {
    const char* name;
    std::size_t offset;
    std::string_view bytes;
};

/// Compares the fields one by one, and all bytes between them with NULs.
void expectFields(std::string block, const std::vector<Field>& fields) {
    for (const Field& field : fields) {
        EXPECT_EQ(block.substr(field.offset, field.bytes.size()), field.bytes) << field.name;
        block.replace(field.offset, field.bytes.size(), field.bytes.size(), '\0');
    }
    EXPECT_EQ(block, std::string(512, '\0'));
}

TEST(HeaderBlock, HoldsTheseBytesForTwelveBytesOfHelloTxt) {
    const Built built = build("hello.txt", 12);
    EXPECT_EQ(built.calls, Calls());
    expectFields(built.block, {{"name", 0, "hello.txt"sv},
                               {"mode", 100, "0000644\0"sv},
                               {"uid", 108, "0000000\0"sv},
                               {"gid", 116, "0000000\0"sv},
                               {"size", 124, "00000000014\0"sv},
                               {"mtime", 136, "00000000000\0"sv},
                               {"chksum", 148, "007604\0 "sv},
                               {"typeflag", 156, "0"sv},
                               {"magic", 257, "ustar\0"sv},
                               {"version", 263, "00"sv}});
}

TEST(HeaderBlock, HoldsTheseBytesForAnEmptyFileCalledA) {
    const Built built = build("a", 0);
    EXPECT_EQ(built.calls, Calls());
    expectFields(built.block, {{"name", 0, "a"sv},
                               {"mode", 100, "0000644\0"sv},
                               {"uid", 108, "0000000\0"sv},
                               {"gid", 116, "0000000\0"sv},
                               {"size", 124, "00000000000\0"sv},
                               {"mtime", 136, "00000000000\0"sv},
                               {"chksum", 148, "006076\0 "sv},
                               {"typeflag", 156, "0"sv},
                               {"magic", 257, "ustar\0"sv},
                               {"version", 263, "00"sv}});
}

TEST(HeaderBlock, HoldsTheseBytesForANameOfTwoFullFields) {
    const std::string prefix(155, '\xFF');
    const std::string name(100, '\xFE');
    const Built built = build(prefix + "/" + name, 1);
    EXPECT_EQ(built.calls, Calls());
    expectFields(built.block, {{"name", 0, name},
                               {"mode", 100, "0000644\0"sv},
                               {"uid", 108, "0000000\0"sv},
                               {"gid", 116, "0000000\0"sv},
                               {"size", 124, "00000000001\0"sv},
                               {"mtime", 136, "00000000000\0"sv},
                               {"chksum", 148, "204573\0 "sv},
                               {"typeflag", 156, "0"sv},
                               {"magic", 257, "ustar\0"sv},
                               {"version", 263, "00"sv},
                               {"prefix", 345, prefix}});
}

TEST(HeaderBlock, HoldsTheSizeInElevenDigits) {
    struct Row {
        std::uint64_t size;
        std::string_view field;
    };
    const Row rows[] = {
        {0, "00000000000\0"sv},   {7, "00000000007\0"sv},          {8, "00000000010\0"sv},
        {512, "00000001000\0"sv}, {4294967295, "37777777777\0"sv}, {8589934591, "77777777777\0"sv},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.size);
        const Built built = build("a", row.size);
        EXPECT_EQ(built.calls, Calls());
        EXPECT_EQ(built.block, sealed(patched(archivedHeader("a", 0), 124, row.field)));
    }
}

// The block is still completed; its maker is told by the exception.
TEST(HeaderBlock, RaisesASizeThatDoesNotFitAndLeavesTheFieldAllNul) {
    for (const std::uint64_t size : {8589934592U + 0U, ~std::uint64_t{0}}) {
        SCOPED_TRACE(size);
        const Built built = build("a", size);
        EXPECT_EQ(built.calls, Calls{"Vesk_raise(IOException, TAR numeric field is too large)"});
        EXPECT_EQ(built.block, sealed(patched(archivedHeader("a", 0), 124, std::string(12, '\0'))));
    }
}

struct Division {
    const char* title;
    std::string entryName;
    std::string prefix;
    std::string name;
};

std::string letters(std::size_t count, char letter = 'x') {
    return std::string(count, letter);
}

std::vector<Division> divisions() {
    const std::string d60 = letters(60, 'd');
    return {
        {"one byte", "a", "", "a"},
        {"slashes in 100 bytes", letters(49) + "/" + letters(50), "",
         letters(49) + "/" + letters(50)},
        {"exactly 100 bytes", letters(100), "", letters(100)},
        {"101 bytes", "d/" + letters(99), "d", letters(99)},
        {"102 bytes, 100 of them last", "d/" + letters(100), "d", letters(100)},
        {"rightmost slash", letters(30) + "/" + letters(30) + "/" + letters(50),
         letters(30) + "/" + letters(30), letters(50)},
        {"152 bytes of three parts", d60 + "/" + d60 + "/" + letters(30), d60 + "/" + d60,
         letters(30)},
        {"slash at index 155", letters(155) + "/" + letters(1), letters(155), "x"},
        {"longest, 256 bytes", letters(155) + "/" + letters(100), letters(155), letters(100)},
        {"slash at index 156 passed over", letters(100) + "/" + letters(55) + "/" + letters(1),
         letters(100), letters(55) + "/x"},
        {"several slashes passed over", letters(150) + "/a/b/c/d/e/f", letters(150) + "/a/b",
         "c/d/e/f"},
        {"slash in the name field", letters(155) + "/" + letters(10) + "/" + letters(89),
         letters(155), letters(10) + "/" + letters(89)},
        {"other bytes", "\xFF\\ \n/" + letters(98, '\x80'), "\xFF\\ \n", letters(98, '\x80')},
        {"slash at index 0", "/" + letters(100), "", letters(100)},
    };
}

TEST(HeaderBlock, SplitsALongNameAtTheRightmostSlashThatLeavesAStorablePrefix) {
    for (const Division& row : divisions()) {
        SCOPED_TRACE(row.title);
        const Built built = build(row.entryName, 5);
        EXPECT_EQ(built.calls, Calls());
        EXPECT_EQ(built.block, sealed(patched(archivedHeader(row.name, 5), 345, row.prefix)));
    }
}

TEST(HeaderBlock, RefusesANameThatTwoFieldsCannotHold) {
    struct Row {
        const char* title;
        std::string entryName;
    };
    const Row rows[] = {
        {"101 bytes without a slash", letters(101)},
        {"257 bytes", letters(155) + "/" + letters(101)},
        {"only slash at index 156", letters(156) + "/" + letters(1)},
        {"only slash at index 200", letters(200) + "/" + letters(20)},
        {"last component of 101 bytes", "a/b/" + letters(101)},
        {"last component of 101 bytes after much", letters(100) + "/" + letters(101)},
        {"slash at index 0 and 101 bytes", "/" + letters(101)},
        {"too much after the last slash that counts", letters(54) + "/" + letters(101) + "/x"},
        {"much too long", letters(100) + "/" + letters(100) + "/" + letters(100)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.title);
        const Built built = build(row.entryName, 5);
        EXPECT_EQ(built.calls, Calls{"Vesk_raise(IOException, TAR entry name is too long)"});
        EXPECT_EQ(built.block, std::string(512, '\0'));
    }
}

TEST(HeaderBlock, SumsUnsignedBytesWithTheChecksumTakenAsSpaces) {
    struct Row {
        const char* title;
        char block;
        char chksum;
        std::uint32_t sum;
    };
    const Row rows[] = {
        {"NULs", '\0', '\0', 256},
        {"NULs around the largest bytes", '\0', '\xFF', 256},
        {"spaces", ' ', ' ', 16384},
        {"the largest bytes", '\xFF', '\0', 128776},
        {"bytes with the sign bit alone", '\x80', '\x80', 64768},
    };
    for (const Row& row : rows) {
        std::string text = patched(std::string(512, row.block), 148, std::string(8, row.chksum));
        const std::vector<std::uint8_t> block(text.begin(), text.end());
        EXPECT_EQ(tarHeaderChecksum(std::span<const std::uint8_t, 512>(block)), row.sum)
            << row.title;
    }
}

TEST(HeaderBlock, SumsTheFirstByteTheLastAndThoseBesideTheChecksum) {
    for (std::size_t offset = 0; offset < 512; ++offset) {
        std::vector<std::uint8_t> block(512);
        block[offset] = 200;
        const bool inChecksum = offset >= 148 && offset <= 155;
        EXPECT_EQ(tarHeaderChecksum(std::span<const std::uint8_t, 512>(block)),
                  inChecksum ? 256U : 456U)
            << offset;
    }
}

}  // namespace
