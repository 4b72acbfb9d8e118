// SPDX-License-Identifier: MIT
// Tests of the octal numbers in a header block: what fits, what is written and what is read.
#include "tar/octal_field.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/recording_host.h"

namespace {

using namespace std::literals;
using namespace vesk::io::archives;
using namespace vesk::testing;

TEST(OctalField, FitsWhatOneDigitLessThanTheWidthCanHold) {
    struct Row {
        std::uint64_t value;
        std::size_t width;
        bool fits;
    };
    const Row rows[] = {
        {0, 8, true},
        {2097151, 8, true},
        {2097152, 8, false},
        {0, 12, true},
        {8589934591, 12, true},
        {8589934592, 12, false},
        {0xFFFFFFFFFFFFFFFF, 8, false},
        {0xFFFFFFFFFFFFFFFF, 12, false},
        {0x7FFFFFFFFFFFFFFF, 22, true},
        {0x8000000000000000, 22, false},
        {0xFFFFFFFFFFFFFFFF, 23, true},
        {0xFFFFFFFFFFFFFFFF, 32, true},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(tarFitsInOctal(row.value, row.width), row.fits) << row.value << ", " << row.width;
    }
}

// Writes a field between other bytes. Returns it with one of these bytes on either side.
std::string writtenField(std::size_t width, std::uint64_t value) {
    std::string bytes(width + 2, 'x');
    tarWriteOctal(reinterpret_cast<std::uint8_t*>(bytes.data()) + 1, width, value);
    return bytes;
}

TEST(OctalField, WritesZeroPaddedDigitsAndOneNulAndNothingBeside) {
    struct Row {
        std::uint64_t value;
        std::size_t width;
        std::string_view written;
    };
    const Row rows[] = {
        {0, 8, "x0000000\0x"sv},
        {420, 8, "x0000644\0x"sv},
        {01234567, 8, "x1234567\0x"sv},
        {2097151, 8, "x7777777\0x"sv},
        {0, 12, "x00000000000\0x"sv},
        {12, 12, "x00000000014\0x"sv},
        {4294967295, 12, "x37777777777\0x"sv},
        {8589934591, 12, "x77777777777\0x"sv},
        {0xFFFFFFFFFFFFFFFF, 23, "x1777777777777777777777\0x"sv},
    };
    for (const Row& row : rows) {
        RecordingHost host;
        EXPECT_EQ(writtenField(row.width, row.value), row.written) << row.value;
        EXPECT_EQ(host.calls, std::vector<std::string>()) << row.value;
    }
}

TEST(OctalField, RaisesANumberThatDoesNotFitAndLeavesTheFieldAllNul) {
    struct Row {
        std::uint64_t value;
        std::size_t width;
        std::string_view written;
    };
    const Row rows[] = {
        {2097152, 8, "x\0\0\0\0\0\0\0\0x"sv},
        {8589934592, 12, "x\0\0\0\0\0\0\0\0\0\0\0\0x"sv},
        {0xFFFFFFFFFFFFFFFF, 12, "x\0\0\0\0\0\0\0\0\0\0\0\0x"sv},
    };
    const std::vector<std::string> raised = {
        "Vesk_raise(IOException, TAR numeric field is too large)"};
    for (const Row& row : rows) {
        RecordingHost host;
        EXPECT_EQ(writtenField(row.width, row.value), row.written) << row.value;
        EXPECT_EQ(host.calls, raised) << row.value;
    }
}

std::optional<std::uint64_t> parsed(std::string_view field) {
    // Exactly as large as the field, so that a sanitizer notices a byte read beyond it.
    const std::vector<std::uint8_t> bytes(field.begin(), field.end());
    return tarParseOctal(bytes.data(), bytes.size());
}

TEST(OctalField, ReadsANumberAmongNulsAndSpaces) {
    struct Row {
        std::string_view field;
        std::uint64_t value;
    };
    const Row rows[] = {
        {"0001234 "sv, 01234},    {"   1234\0"sv, 01234},    {"1234\0\0\0\0"sv, 01234},
        {"1234    "sv, 01234},    {"1234\0 \0 "sv, 01234},   {"1234 \0 \0"sv, 01234},
        {"\0\0 \0 123"sv, 0123},  {"\0001234\0\0"sv, 01234}, {"       7"sv, 7},
        {"7       "sv, 7},        {"0       "sv, 0},         {"00000000"sv, 0},
        {"77777777"sv, 16777215}, {"12345670"sv, 012345670}, {"777777777777"sv, 68719476735},
        {"000000000014"sv, 12},   {"00000000014\0"sv, 12},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(parsed(row.field), row.value) << row.field;
    }
}

TEST(OctalField, ReadsNoNumberAmongOtherCharacters) {
    const std::string_view fields[] = {
        "\0\0\0\0\0\0\0\0"sv,  // nothing at all
        "        "sv,
        " \0 \0 \0 \0"sv,
        "12 34\0\0\0"sv,  // a digit after the end
        "12\00034\0\0\0"sv,
        "0x12\0\0\0\0"sv,
        "-1234\0\0\0"sv,
        "+1234\0\0\0"sv,
        "1234-\0\0\0"sv,
        "8\0\0\0\0\0\0\0"sv,
        "1239\0\0\0\0"sv,
        "1234\t\0\0\0"sv,
        "1234\n\0\0\0"sv,
        "\t1234\0\0\0"sv,
        "1234567a"sv,
        "\x80\0\0\0\0\0\x04\xD2"sv,  // base-256
        "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv,
    };
    for (const std::string_view field : fields) {
        EXPECT_EQ(parsed(field), std::nullopt) << field;
    }
}

TEST(OctalField, JudgesEveryByteAtTheStartInTheMiddleAndAtTheEnd) {
    for (int value = 0; value < 256; ++value) {
        const char byte = static_cast<char>(value);
        const bool isBlank = value == 0 || value == 32;
        const bool isDigit = value >= 48 && value <= 55;
        EXPECT_EQ(parsed(byte + "1234567"s).has_value(), isBlank || isDigit) << value;
        EXPECT_EQ(parsed("123"s + byte + "4567").has_value(), isDigit) << value;
        EXPECT_EQ(parsed("1234567"s + byte).has_value(), isBlank || isDigit) << value;
    }
}

// No field of the format is that wide, but the parser's promise includes the limit.
TEST(OctalField, ReadsNoNumberOfMoreThan64Bits) {
    EXPECT_EQ(parsed("01777777777777777777777"), 0xFFFFFFFFFFFFFFFF);
    EXPECT_EQ(parsed("1777777777777777777777 "), 0xFFFFFFFFFFFFFFFF);
    EXPECT_EQ(parsed("2000000000000000000000 "), std::nullopt);
    EXPECT_EQ(parsed("10000000000000000000000"), std::nullopt);
    EXPECT_EQ(parsed("77777777777777777777777"), std::nullopt);
}

TEST(OctalField, ReadsNothingBeyondItsWidth) {
    const std::array<std::uint8_t, 4> bytes = {'1', '2', '3', '4'};
    EXPECT_EQ(tarParseOctal(bytes.data(), 3), std::uint64_t{0123});
    EXPECT_EQ(tarParseOctal(bytes.data(), 0), std::nullopt);
}

}  // namespace
