// SPDX-License-Identifier: MIT
// An archive that is cut off anywhere is refused, at each length with the message for that place.
#include <gtest/gtest.h>
#include <zlib.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "tests/exhaustive/damage.h"

namespace vesk::testing {

namespace {

const char* const noEnd = "TAR archive has no end marker";
const char* const truncatedDeflate = "Truncated DEFLATE data";
const char* const tooLong = "DEFLATE output is longer than its declared size";

// A header and 5 bytes in one block, a header and 600 bytes in two blocks, the end marker: 3584
// bytes in total.
Workshop workshopWithTwoFiles() {
    return Workshop(Tree{{"a.txt", "12345"}, {"sub/b.bin", std::string(600, '\xA5')}});
}

// Returns the number in the last four bytes, lowest byte first: where ISIZE is read from.
std::uint32_t declaredSize(std::string_view member) {
    std::uint32_t value = 0;
    for (std::size_t i = 1; i <= 4; ++i)
        value = value << 8 | static_cast<unsigned char>(member[member.size() - i]);
    return value;
}

// Returns the number of bytes that zlib decodes from the beginning of raw DEFLATE data.
std::size_t decodedSize(std::string_view packed) {
    z_stream stream{};
    EXPECT_EQ(inflateInit2(&stream, -15), Z_OK);
    std::array<Bytef, 8192> content;
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
    stream.avail_in = static_cast<uInt>(packed.size());
    stream.next_out = content.data();
    stream.avail_out = content.size();
    EXPECT_NE(inflate(&stream, Z_SYNC_FLUSH), Z_STREAM_END);
    inflateEnd(&stream);
    return content.size() - stream.avail_out;
}

// Any eight bytes serve as the trailer, so the output may be longer than the declared size.
std::string expectedOfMember(std::string_view prefix) {
    if (prefix.size() < 18) return "Invalid gzip stream";
    if (prefix.size() == 18) return "Missing gzip DEFLATE payload";
    const std::size_t decoded = decodedSize(prefix.substr(10, prefix.size() - 18));
    return decoded > declaredSize(prefix) ? tooLong : truncatedDeflate;
}

void expectPrefixesOfMemberRefused(Workshop& workshop, const std::string& member) {
    for (std::size_t length = 0; length < member.size(); ++length) {
        const std::string prefix = member.substr(0, length);
        EXPECT_EQ(workshop.unpacked(Container::tgz, prefix), expectedOfMember(prefix))
            << "the first " << length << " bytes";
    }
    EXPECT_EQ(workshop.unpacked(Container::tgz, member), unpackedWhole);
}

}  // namespace

TEST(Prefixes, OfATarStreamSayWhatIsMissingThere) {
    const struct {
        std::size_t end;  // of the lengths that come to this, not included
        std::string_view outcome;
    } rows[] = {
        {512, noEnd},  {517, "Truncated TAR entry"},  {1024, "Truncated TAR entry padding"},
        {1536, noEnd}, {2136, "Truncated TAR entry"}, {2560, "Truncated TAR entry padding"},
        {3072, noEnd}, {3584, unpackedWhole},  // one block of the end marker is enough
    };
    Workshop workshop = workshopWithTwoFiles();
    const std::string archive = workshop.made(Container::tar);
    ASSERT_EQ(archive.size(), 3584U);
    std::size_t length = 0;
    for (const auto& row : rows) {
        for (; length < row.end; ++length) {
            EXPECT_EQ(workshop.unpacked(Container::tar, archive.substr(0, length)), row.outcome)
                << "the first " << length << " bytes";
        }
    }
}

TEST(Prefixes, OfAMemberOfStoredBlocksAreRefused) {
    Workshop workshop = workshopWithTwoFiles();
    const std::string member = workshop.made(Container::tgz);
    ASSERT_EQ(member.size(), 3607U);
    expectPrefixesOfMemberRefused(workshop, member);
}

TEST(Prefixes, OfACompressedMemberAreRefused) {
    Workshop workshop = workshopWithTwoFiles();
    const std::string archive = workshop.made(Container::tar);
    const std::string member = workshop.gzipped(archive);
    ASSERT_LT(member.size(), 1000U);
    expectPrefixesOfMemberRefused(workshop, member);
}

}  // namespace vesk::testing
