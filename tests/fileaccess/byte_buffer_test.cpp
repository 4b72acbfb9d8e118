// SPDX-License-Identifier: MIT
// Tests of ByteBuffer: its content, how it grows, what a move leaves and what it throws.
#include "fileaccess/byte_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include "tests/support/buffer_text.h"

// Makes the sanitizers' allocator refuse what the C library's refuses, instead of ending the test.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

using namespace std::literals;
using namespace vesk::io::archives;
using namespace vesk::testing;

constexpr std::size_t largestSize = std::numeric_limits<std::ptrdiff_t>::max();
constexpr std::size_t impossibleSize = largestSize + 1;

static_assert(!std::is_copy_constructible_v<ByteBuffer>);
static_assert(!std::is_copy_assignable_v<ByteBuffer>);
static_assert(std::is_nothrow_move_constructible_v<ByteBuffer>);
static_assert(std::is_nothrow_move_assignable_v<ByteBuffer>);

void expectEmpty(const ByteBuffer& buffer) {
    EXPECT_EQ(buffer.size(), 0U);
    EXPECT_EQ(buffer.capacity(), 0U);
    EXPECT_EQ(buffer.data(), nullptr);
    EXPECT_EQ(buffer.begin(), buffer.end());
}

TEST(ByteBuffer, BeginsEmpty) {
    expectEmpty(ByteBuffer());
}

// Fills memory with other bytes than zero; a later allocation may get it.
void soilMemory(std::size_t size) {
    void* const block = std::malloc(size);
    std::memset(block, 0xA5, size);
    // Prevents the compiler from removing writes that nobody reads.
    asm volatile("" : : "r"(block) : "memory");
    std::free(block);
}

TEST(ByteBuffer, HoldsWhatWasAppendedInOrder) {
    const std::string big(3000000, 'b');
    ByteBuffer buffer;
    std::string expected;
    for (const std::string& piece : {""s, "x"s, "\0\xFF"s, ""s, "yz"s, big, "end"s, big}) {
        buffer.append(reinterpret_cast<const std::uint8_t*>(piece.data()), piece.size());
        expected += piece;
        ASSERT_TRUE(asText(buffer) == expected) << expected.size();
    }
    buffer.append(0x80);
    buffer.append(0);
    EXPECT_TRUE(asText(buffer) == expected + "\x80\0"s);
}

TEST(ByteBuffer, ExtendsByUnwrittenBytesAtItsEnd) {
    ByteBuffer buffer = asBuffer("abc");
    std::string expected = "abc";
    for (const std::size_t count : {1U, 100U, 3000000U}) {
        std::uint8_t* const room = buffer.extend(count);
        EXPECT_EQ(room, buffer.end() - count);
        std::memset(room, 'x', count);
        expected.append(count, 'x');
        ASSERT_TRUE(asText(buffer) == expected) << count;
    }
}

TEST(ByteBuffer, AppendsNoBytesFromANullPointer) {
    ByteBuffer buffer;
    buffer.append(nullptr, 0);
    buffer.appendZeros(0);
    buffer.extend(0);
    expectEmpty(buffer);

    buffer.append('x');
    buffer.append(nullptr, 0);
    buffer.appendZeros(0);
    EXPECT_EQ(asText(buffer), "x");
}

TEST(ByteBuffer, AppendsZerosInUsedMemoryToo) {
    for (const std::size_t count : {1U, 511U, 1024U, 2000000U}) {
        SCOPED_TRACE(count);
        soilMemory(count + 1);
        ByteBuffer buffer;
        buffer.append('x');
        buffer.appendZeros(count);
        buffer.append('y');
        EXPECT_TRUE(asText(buffer) == "x"s + std::string(count, '\0') + "y");
    }
}

// Sizes around the one from which blocks are large pages, and far beyond it.
TEST(ByteBuffer, AtLeastDoublesItsCapacityWheneverItGrows) {
    ByteBuffer buffer;
    std::size_t capacity = 0;
    int growths = 0;
    while (buffer.size() < 20000000) {
        buffer.append('x');
        if (buffer.capacity() == capacity) continue;
        EXPECT_GE(buffer.capacity(), 2 * capacity);
        capacity = buffer.capacity();
        ++growths;
    }
    EXPECT_LE(growths, 26);
}

TEST(ByteBuffer, GrowsAtOnceToMoreThanTheDouble) {
    ByteBuffer buffer = asBuffer("abc");
    const std::string long_(1000, 'x');
    buffer.append(reinterpret_cast<const std::uint8_t*>(long_.data()), long_.size());
    EXPECT_EQ(asText(buffer), "abc" + long_);
    EXPECT_GE(buffer.capacity(), 1003U);
}

TEST(ByteBuffer, NeverMovesUpToTheReservedCapacity) {
    for (const std::size_t capacity : {1U, 32U, 65572U, 1U << 20, 5000000U}) {
        SCOPED_TRACE(capacity);
        ByteBuffer buffer;
        buffer.reserve(capacity);
        EXPECT_EQ(buffer.size(), 0U);
        EXPECT_GE(buffer.capacity(), capacity);
        const std::uint8_t* const data = buffer.data();
        const std::size_t reserved = buffer.capacity();
        buffer.appendZeros(capacity - 1);
        buffer.append('x');
        EXPECT_EQ(buffer.data(), data);
        EXPECT_EQ(buffer.capacity(), reserved);
    }
}

TEST(ByteBuffer, KeepsItsBytesAndNeverShrinksWhenItReserves) {
    ByteBuffer buffer = asBuffer("abc");
    buffer.reserve(5000000);
    EXPECT_EQ(asText(buffer), "abc");
    const std::size_t capacity = buffer.capacity();
    for (const std::size_t lower : {std::size_t{0}, std::size_t{3}, capacity}) {
        buffer.reserve(lower);
        EXPECT_EQ(buffer.capacity(), capacity);
        EXPECT_EQ(asText(buffer), "abc");
    }
}

TEST(ByteBuffer, MovesItsBytesWithoutCopyingAndLeavesItsSourceEmpty) {
    ByteBuffer source = asBuffer("abc");
    const std::uint8_t* const data = source.data();
    const std::size_t capacity = source.capacity();

    ByteBuffer constructed(std::move(source));
    EXPECT_EQ(constructed.data(), data);
    EXPECT_EQ(constructed.capacity(), capacity);
    EXPECT_EQ(asText(constructed), "abc");
    expectEmpty(source);

    ByteBuffer assigned = asBuffer("what was there before");
    assigned = std::move(constructed);
    EXPECT_EQ(assigned.data(), data);
    EXPECT_EQ(assigned.capacity(), capacity);
    EXPECT_EQ(asText(assigned), "abc");
    expectEmpty(constructed);
}

TEST(ByteBuffer, CanBeFilledAgainAfterItWasMovedFrom) {
    ByteBuffer source = asBuffer("abc");
    const ByteBuffer taken = std::move(source);
    source.append('x');
    EXPECT_EQ(asText(source), "x");
    EXPECT_EQ(asText(taken), "abc");
}

TEST(ByteBuffer, StaysUsableWhenItIsMovedToItself) {
    ByteBuffer buffer = asBuffer("abc");
    ByteBuffer& same = buffer;
    buffer = std::move(same);
    EXPECT_EQ(buffer.size(), static_cast<std::size_t>(buffer.end() - buffer.begin()));
    const std::string before = asText(buffer);
    buffer.append('x');
    EXPECT_EQ(asText(buffer), before + "x");
}

template <typename Call>
std::string lengthError(const Call& call) {
    try {
        call();
    } catch (const std::length_error& error) {
        return error.what();
    }
    return "no length error";
}

TEST(ByteBuffer, ThrowsALengthErrorForASizeThatNoBufferCanHave) {
    const std::uint8_t byte = 'x';
    for (const char* const content : {"", "abc"}) {
        SCOPED_TRACE(content);
        ByteBuffer buffer = asBuffer(content);
        const std::size_t tooMany = impossibleSize - buffer.size();
        for (const std::size_t size : {impossibleSize, std::numeric_limits<std::size_t>::max()}) {
            EXPECT_EQ(lengthError([&] { buffer.reserve(size); }), "vector::reserve");
            EXPECT_EQ(lengthError([&] { buffer.appendZeros(size); }), "vector::reserve");
            EXPECT_EQ(lengthError([&] { buffer.append(&byte, size); }), "vector::reserve");
            EXPECT_EQ(lengthError([&] { buffer.extend(size); }), "vector::reserve");
        }
        EXPECT_EQ(lengthError([&] { buffer.appendZeros(tooMany); }), "vector::reserve");
        EXPECT_EQ(lengthError([&] { buffer.append(&byte, tooMany); }), "vector::reserve");
        EXPECT_EQ(asText(buffer), content);
    }
}

// With 32 bits, there may be room for it.
#if SIZE_MAX > UINT32_MAX

TEST(ByteBuffer, ThrowsBadAllocAndKeepsItsBytesWhenThereIsNoMemory) {
    const std::uint8_t byte = 'x';
    ByteBuffer buffer = asBuffer("abc");
    const std::size_t capacity = buffer.capacity();
    EXPECT_THROW(buffer.reserve(largestSize), std::bad_alloc);
    EXPECT_THROW(buffer.appendZeros(largestSize - 3), std::bad_alloc);
    EXPECT_THROW(buffer.append(&byte, largestSize - 3), std::bad_alloc);
    EXPECT_THROW(buffer.extend(largestSize - 3), std::bad_alloc);
    EXPECT_EQ(buffer.capacity(), capacity);
    EXPECT_EQ(asText(buffer), "abc");
}

#endif

}  // namespace
