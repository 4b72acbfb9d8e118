// SPDX-License-Identifier: MIT
// The CRC-32 accumulator: known values, no inversion of its own, continued over any split.
#include <gtest/gtest.h>
#include <zlib.h>

#include <string>

#include "module/host/host_runtime.h"

namespace {

using vesk::runtime::zip::crc32Update;

const std::uint8_t* bytesOf(const std::string& text) {
    return reinterpret_cast<const std::uint8_t*>(text.data());
}

std::string everyByte() {
    std::string text;
    for (int value = 0; value < 256; ++value)
        text.push_back(static_cast<char>(value));
    return text;
}

TEST(Crc32, GivesTheGzipChecksumOnceInverted) {
    struct Row {
        const char* name;
        std::string text;
        std::uint32_t finished;
    };
    const Row rows[] = {
        {"nothing", "", 0x00000000},
        {"one byte", "a", 0xe8b7be43},
        {"check value", "123456789", 0xcbf43926},
        {"sentence", "The quick brown fox jumps over the lazy dog", 0x414fa339},
        {"zeros", std::string(32, '\0'), 0x190a55ad},
        {"ones", std::string(32, '\xFF'), 0xff6cab0b},
        {"every byte", everyByte(), 0x29058c73},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(~crc32Update(0xFFFFFFFF, bytesOf(row.text), row.text.size()), row.finished);
    }
}

TEST(Crc32, InvertsTheRegisterNeitherOnEntryNorOnExit) {
    const std::string text = "123456789";
    EXPECT_EQ(crc32Update(0x00000000, bytesOf(text), text.size()), 0x2dfd2d88U);
    EXPECT_EQ(crc32Update(0x12345678, bytesOf(text), text.size()), 0xe7fd94d5U);
}

TEST(Crc32, LeavesTheRegisterAloneForNoBytes) {
    const std::uint8_t byte = 7;
    for (const std::uint32_t crc : {0x00000000U, 0x12345678U, 0xFFFFFFFFU}) {
        EXPECT_EQ(crc32Update(crc, nullptr, 0), crc);
        EXPECT_EQ(crc32Update(crc, &byte, 0), crc);
    }
}

TEST(Crc32, ContinuesOverEverySplit) {
    const std::string text = everyByte() + everyByte();
    const std::uint64_t size = text.size();
    const auto expected = static_cast<std::uint32_t>(crc32(0, bytesOf(text), 512));
    for (std::uint64_t split = 0; split <= size; ++split) {
        const std::uint32_t front = crc32Update(0xFFFFFFFF, bytesOf(text), split);
        ASSERT_EQ(~crc32Update(front, bytesOf(text) + split, size - split), expected) << split;
    }
}

TEST(Crc32, AgreesWithZlibOverManyBytes) {
    std::string text(3000001, '\0');
    std::uint32_t value = 1;
    for (char& byte : text)
        byte = static_cast<char>((value = value * 1664525 + 1013904223) >> 24);
    EXPECT_EQ(~crc32Update(0xFFFFFFFF, bytesOf(text), text.size()),
              crc32_z(0, bytesOf(text), text.size()));
}

}  // namespace
