// SPDX-License-Identifier: MIT
// No flipped bit of an archive goes unnoticed, except those without meaning in the formats, which
// are listed here.
#include <gtest/gtest.h>
#include <zlib.h>

#include <array>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "tests/exhaustive/damage.h"
#include "tests/support/gzip_bytes.h"
#include "tests/support/tar_bytes.h"

namespace vesk::testing {

namespace {

// The result of flipping any of the bits in `bits` of any byte from `first` to `last`.
struct Row {
    std::size_t first, last;
    unsigned bits;
    std::string_view outcome;
};

constexpr unsigned all = 0xFF;

// Returns the result of the first row for a bit, or `otherwise` when no row matches.
std::string_view outcomeIn(std::span<const Row> rows, std::size_t offset, int bit,
                           std::string_view otherwise) {
    for (const Row& row : rows) {
        const bool covered = offset >= row.first && offset <= row.last;
        if (covered && (row.bits >> bit & 1) != 0) return row.outcome;
    }
    return otherwise;
}

std::string placed(std::size_t offset, int bit) {
    return "byte " + std::to_string(offset) + ", bit " + std::to_string(bit);
}

const std::string_view badSum = "Invalid TAR header checksum";
const std::string_view badStream = "Invalid gzip stream";
const std::string_view badFlags = "Invalid gzip flags";
const std::string_view badHeaderSum = "Invalid gzip header checksum";
const std::string_view badGzipSum = "Invalid gzip checksum";
const std::string_view badDeflate = "Invalid DEFLATE data";
const std::string_view tooShort = "DEFLATE output is shorter than its declared size";
const std::string_view tooLong = "DEFLATE output is longer than its declared size";

}  // namespace

TEST(BitFlips, OfAHeaderBlockBreakItsChecksum) {
    // All blanks around the digits of chksum are equivalent: here a leading zero becomes a space,
    // and the NUL and the space after the last digit become each other.
    const Row rows[] = {{148, 148, 1 << 4, unpackedWhole},
                        {154, 154, 1 << 5, unpackedWhole},
                        {155, 155, 1 << 5, unpackedWhole}};
    Workshop workshop(Tree{{"hello.txt", "Hello, world"}});
    const std::string archive = workshop.made(Container::tar);
    for (std::size_t offset = 0; offset < 512; ++offset) {
        for (int bit = 0; bit < 8; ++bit) {
            EXPECT_EQ(workshop.unpacked(Container::tar, flipped(archive, offset, bit)),
                      outcomeIn(rows, offset, bit, badSum))
                << placed(offset, bit);
        }
    }
}

TEST(BitFlips, OfFieldsThatAreNotReadChangeNothingUnderARightChecksum) {
    const Row rows[] = {
        {100, 123, all, unpackedWhole},  // mode, uid, gid
        {136, 147, all, unpackedWhole},  // mtime
        {156, 156, all, "Unsupported TAR entry type"},
        {157, 344, all, unpackedWhole},  // linkname, magic, version, owners' names, device numbers
        {500, 511, all, unpackedWhole},  // padding
    };
    Workshop workshop(Tree{{"hello.txt", "Hello, world"}});
    const std::string archive = workshop.made(Container::tar);
    for (const Row& row : rows) {
        for (std::size_t offset = row.first; offset <= row.last; ++offset) {
            for (int bit = 0; bit < 8; ++bit) {
                const std::string header = sealed(flipped(archive.substr(0, 512), offset, bit));
                EXPECT_EQ(workshop.unpacked(Container::tar, header + archive.substr(512)),
                          row.outcome)
                    << placed(offset, bit);
            }
        }
    }
}

TEST(BitFlips, OfAMemberOfStoredBlocksAreRefusedOrInBitsWithoutMeaning) {
    const Row rows[] = {
        {0, 2, all, badStream},
        {3, 3, 0x01, unpackedWhole},  // FTEXT
        {3, 3, 0x02, badHeaderSum},
        {3, 3, 0x1C, badDeflate},  // the payload seems to begin elsewhere
        {3, 3, 0xE0, badFlags},
        {4, 9, all, unpackedWhole},                              // MTIME, XFL, OS
        {10, 10, 0x01, "Truncated DEFLATE data"},                // another block seems to follow
        {10, 10, 0x02, "Unexpected data after DEFLATE stream"},  // it seems to be an empty block
        {10, 10, 0x04, badDeflate},
        {10, 10, 0xF8, unpackedWhole},  // up to the next byte, before LEN
        {11, 14, all, badDeflate},      // LEN, NLEN
        {15, 1042, all, badGzipSum},    // content, CRC32
        {1044, 1044, 1 << 2, tooLong},  // ISIZE, which is 1024
        {1043, 1046, all, tooShort},
    };
    Workshop workshop(Tree{});
    const std::string member = workshop.made(Container::tgz);
    ASSERT_EQ(member.size(), 1047U);
    for (std::size_t offset = 0; offset < member.size(); ++offset) {
        for (int bit = 0; bit < 8; ++bit) {
            EXPECT_EQ(workshop.unpacked(Container::tgz, flipped(member, offset, bit)),
                      outcomeIn(rows, offset, bit, "(no row)"))
                << placed(offset, bit);
        }
    }
}

TEST(BitFlips, OfACompressedMemberAreRefusedUnlessTheSameBytesComeOut) {
    const Row header[] = {
        {0, 2, all, badStream},
        {3, 3, 0x01, unpackedWhole},  // FTEXT
        {3, 3, 0xE0, badFlags},
        {4, 9, all, unpackedWhole},  // MTIME, XFL, OS
    };
    const std::set<std::string, std::less<>> refusals{
        std::string(badHeaderSum),    std::string(badDeflate),
        std::string(tooShort),        std::string(tooLong),
        "Truncated DEFLATE data",     std::string(badGzipSum),
        "Truncated gzip comment",     "Truncated gzip file name",
        "Truncated gzip extra field", "Unexpected data after DEFLATE stream"};
    Workshop workshop(Tree{{"hello.txt", "Hello, world"}});
    const std::string archive = workshop.made(Container::tar);
    const std::string member = workshop.gzipped(archive);
    ASSERT_LT(member.size(), 200U);
    for (std::size_t offset = 0; offset < member.size(); ++offset) {
        for (int bit = 0; bit < 8; ++bit) {
            const std::string damaged = flipped(member, offset, bit);
            const std::string outcome = workshop.unpacked(Container::tgz, damaged);
            std::string_view expected = outcomeIn(header, offset, bit, "");
            // A copy from another distance can copy the same bytes.
            if (expected.empty() && gunzip(damaged, 8192) == archive) expected = unpackedWhole;
            if (expected.empty() && refusals.contains(outcome)) expected = outcome;
            EXPECT_EQ(outcome, expected) << placed(offset, bit);
        }
    }
}

TEST(BitFlips, OfAHeaderWithAChecksumAreAllRefused) {
    Workshop workshop(Tree{{"hello.txt", "Hello, world"}});
    const std::string header = withHeaderChecksum(gzipHeader(0x1F) + std::string("\3\0abc", 5) +
                                                  std::string("name\0comment\0", 13));
    const std::string member = header + workshop.made(Container::tgz).substr(10);
    ASSERT_EQ(workshop.unpacked(Container::tgz, member), unpackedWhole);
    const Row rows[] = {
        {0, 2, all, badStream},
        {3, 3, 0x02, badDeflate},  // the checksum is taken for payload
        {3, 3, 0xE0, badFlags},
        {11, 11, 0xF0, "Truncated gzip extra field"},  // 4096 bytes more of it, at least
    };
    for (std::size_t offset = 0; offset < header.size(); ++offset) {
        for (int bit = 0; bit < 8; ++bit) {
            EXPECT_EQ(workshop.unpacked(Container::tgz, flipped(member, offset, bit)),
                      outcomeIn(rows, offset, bit, badHeaderSum))
                << placed(offset, bit);
        }
    }
}

}  // namespace vesk::testing
