// SPDX-License-Identifier: MIT
// Where blocks are allocated, what is advised for them, and that they keep their bytes.
#include "fileaccess/memory_block.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <string>
#include <vector>

namespace {

/// The calls of the code under test. The C library's own calls do not appear here.
std::vector<std::string> calls;
bool failsToMap = false;

template <typename Function>
Function original(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void note(const char* call, std::size_t size) {
    calls.push_back(std::string(call) + " " + std::to_string(size));
}

}  // namespace

// Replace the functions of the C library.
extern "C" {

void* mmap(void* address, std::size_t size, int protection, int flags, int file,
           off_t offset) noexcept {
    note("mmap", size);
    if (failsToMap) return MAP_FAILED;
    return original<decltype(&mmap)>("mmap")(address, size, protection, flags, file, offset);
}

void* mremap(void* old, std::size_t oldSize, std::size_t size, int flags, ...) noexcept {
    note("mremap", oldSize);
    note("to", size);
    if (failsToMap) return MAP_FAILED;
    return original<decltype(&mremap)>("mremap")(old, oldSize, size, flags);
}

int munmap(void* address, std::size_t size) noexcept {
    note("munmap", size);
    return original<decltype(&munmap)>("munmap")(address, size);
}

int madvise(void* /*address*/, std::size_t size, int advice) noexcept {
    note(advice == MADV_HUGEPAGE ? "large pages for" : "other advice for", size);
    return 0;
}

}  // extern "C"

namespace vesk::io::archives {

namespace {

using Calls = std::vector<std::string>;

constexpr std::size_t mebibyte = 1024 * 1024;

void fill(void* block, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i)
        static_cast<std::uint8_t*>(block)[i] = static_cast<std::uint8_t>(i % 251);
}

bool isFilled(const void* block, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i)
        if (static_cast<const std::uint8_t*>(block)[i] != i % 251) return false;
    return true;
}

}  // namespace

TEST(MemoryBlock, SmallBlockComesFromTheAllocatorWithoutAdvice) {
    calls.clear();
    void* block = growBlock(nullptr, 0, 1000);
    fill(block, 1000);
    block = growBlock(block, 1000, mebibyte - 1);
    EXPECT_TRUE(isFilled(block, 1000));
    freeBlock(block, mebibyte - 1);
    freeBlock(nullptr, 0);
    EXPECT_EQ(calls, Calls());
}

TEST(MemoryBlock, LargeBlockIsItsOwnMappingInWholeLargePagesUntilItIsFreed) {
    for (const std::size_t size : {mebibyte, 2 * mebibyte - 1, 2 * mebibyte}) {
        SCOPED_TRACE(size);
        calls.clear();
        void* const block = growBlock(nullptr, 0, size);
        fill(block, size);
        freeBlock(block, size);
        EXPECT_EQ(calls, (Calls{"mmap 2097152", "large pages for 2097152", "munmap 2097152"}));
    }
    calls.clear();
    freeBlock(growBlock(nullptr, 0, 2 * mebibyte + 1), 2 * mebibyte + 1);
    EXPECT_EQ(calls, (Calls{"mmap 4194304", "large pages for 4194304", "munmap 4194304"}));
}

TEST(MemoryBlock, KeepsItsBytesWhenItGrowsIntoAMappingAndWithinIt) {
    void* block = growBlock(nullptr, 0, 5000);
    fill(block, 5000);
    calls.clear();
    block = growBlock(block, 5000, 3 * mebibyte);
    EXPECT_EQ(calls, (Calls{"mmap 4194304", "large pages for 4194304"}));
    EXPECT_TRUE(isFilled(block, 5000));

    fill(block, 3 * mebibyte);
    calls.clear();
    block = growBlock(block, 3 * mebibyte, 9 * mebibyte);
    EXPECT_EQ(calls, (Calls{"mremap 4194304", "to 10485760"}));
    EXPECT_TRUE(isFilled(block, 3 * mebibyte));
    fill(block, 9 * mebibyte);

    calls.clear();
    freeBlock(block, 9 * mebibyte);
    EXPECT_EQ(calls, Calls{"munmap 10485760"});
}

TEST(MemoryBlock, ThrowsBadAllocAndKeepsTheBlockWhenNothingCanBeMapped) {
    void* small = growBlock(nullptr, 0, 5000);
    void* large = growBlock(nullptr, 0, 3 * mebibyte);
    fill(small, 5000);
    fill(large, 3 * mebibyte);

    failsToMap = true;
    EXPECT_THROW(growBlock(nullptr, 0, mebibyte), std::bad_alloc);
    EXPECT_THROW(growBlock(small, 5000, mebibyte), std::bad_alloc);
    EXPECT_THROW(growBlock(large, 3 * mebibyte, 5 * mebibyte), std::bad_alloc);
    failsToMap = false;

    EXPECT_TRUE(isFilled(small, 5000));
    EXPECT_TRUE(isFilled(large, 3 * mebibyte));
    freeBlock(small, 5000);
    freeBlock(large, 3 * mebibyte);
}

TEST(MemoryBlock, GivesStandardContainersTheSameBlocks) {
    calls.clear();
    {
        std::vector<std::uint32_t, BlockAllocator<std::uint32_t>> numbers(mebibyte / 4, 7);
        EXPECT_EQ(std::count(numbers.begin(), numbers.end(), 7U), mebibyte / 4);
        EXPECT_EQ(calls, (Calls{"mmap 2097152", "large pages for 2097152"}));
    }
    EXPECT_EQ(calls.back(), "munmap 2097152");
}

}  // namespace vesk::io::archives
