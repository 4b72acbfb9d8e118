// SPDX-License-Identifier: MIT
// Which capacities large blocks get, and for which bytes advice is given.
#include "fileaccess/large_pages.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <limits>
#include <optional>

namespace {

struct Advice {
    std::uintptr_t begin;
    std::size_t size;
    int advice;

    bool operator==(const Advice&) const = default;
};

std::optional<Advice> lastAdvice;

}  // namespace

// In place of the C library's.
extern "C" int madvise(void* begin, std::size_t size, int advice) noexcept {
    lastAdvice = Advice{reinterpret_cast<std::uintptr_t>(begin), size, advice};
    return 0;
}

namespace vesk::io::archives {

namespace {

constexpr std::size_t mebibyte = 1024 * 1024;
constexpr std::size_t largest = std::numeric_limits<std::size_t>::max();

std::optional<Advice> adviceOn(std::uintptr_t block, std::size_t size) {
    lastAdvice.reset();
    preferLargePages(reinterpret_cast<void*>(block), size);
    return lastAdvice;
}

}  // namespace

TEST(LargePages, LargeCapacitiesFillWholePagesWithTheAllocatorsThirtyTwoBytes) {
    struct Row {
        std::size_t wanted;
        std::size_t given;
    };
    const Row rows[] = {
        {0, 0},
        {1000, 1000},
        {mebibyte - 1, mebibyte - 1},
        {mebibyte, 2 * mebibyte - 32},
        {2 * mebibyte - 32, 2 * mebibyte - 32},
        {2 * mebibyte - 31, 4 * mebibyte - 32},
        {4 * mebibyte - 32, 4 * mebibyte - 32},
        {4 * mebibyte - 31, 6 * mebibyte - 32},
        {largest / 2 - 2 * mebibyte - 4096, largest / 2 - 2 * mebibyte - 31},
        {largest / 2 - mebibyte, largest / 2 - mebibyte},
        {largest, largest},
    };
    for (const Row& row : rows)
        EXPECT_EQ(largePageCapacity(row.wanted), row.given) << row.wanted;
}

TEST(LargePages, LargeBlockIsAdvisedFromThePageWhereTheAllocatorsBytesBegin) {
    constexpr std::uintptr_t page = 0x10000000;
    const std::size_t size = 2 * mebibyte - 32;
    EXPECT_EQ(adviceOn(page + 16, size), (Advice{page, 2 * mebibyte, MADV_HUGEPAGE}));
    EXPECT_EQ(adviceOn(page + 32, size), (Advice{page, 2 * mebibyte + 16, MADV_HUGEPAGE}));
    EXPECT_EQ(adviceOn(page + 4096 + 16, size), (Advice{page + 4096, 2 * mebibyte, MADV_HUGEPAGE}));
    EXPECT_EQ(adviceOn(page + 4096, size), (Advice{page, 2 * mebibyte + 4096 - 16, MADV_HUGEPAGE}));
}

TEST(LargePages, SmallBlockIsLeftAlone) {
    constexpr std::uintptr_t block = 0x10000010;
    EXPECT_EQ(adviceOn(block, 0), std::nullopt);
    EXPECT_EQ(adviceOn(block, mebibyte - 1), std::nullopt);
    EXPECT_NE(adviceOn(block, mebibyte), std::nullopt);
}

}  // namespace vesk::io::archives
