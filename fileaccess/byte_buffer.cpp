// SPDX-License-Identifier: MIT
// ByteBuffer: growth by the C allocator, which can move pages where a container would copy bytes.
#include "fileaccess/byte_buffer.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include "fileaccess/large_pages.h"

namespace vesk::io::archives {

namespace {

// Pointers into an object cannot differ by more.
enum : std::size_t { maxSize = std::numeric_limits<std::ptrdiff_t>::max() };

[[noreturn]] void refuseSize() {
    throw std::length_error("vector::reserve");
}

}  // namespace

// This class is the owner that the guidelines ask for.
// NOLINTBEGIN(cppcoreguidelines-no-malloc, cppcoreguidelines-owning-memory)

ByteBuffer::ByteBuffer(std::size_t size) {
    if (size == 0) return;
    if (size > maxSize) refuseSize();
    data_ = static_cast<std::uint8_t*>(std::calloc(size, 1));
    if (data_ == nullptr) throw std::bad_alloc();
    preferLargePages(data_, size);
    size_ = capacity_ = size;
}

ByteBuffer::ByteBuffer(ByteBuffer&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {}

ByteBuffer& ByteBuffer::operator=(ByteBuffer&& other) noexcept {
    ByteBuffer old(std::move(*this));
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
    return *this;
}

ByteBuffer::~ByteBuffer() {
    std::free(data_);
}

void ByteBuffer::reserve(std::size_t capacity) {
    if (capacity > maxSize) refuseSize();
    if (capacity <= capacity_) return;
    const std::size_t allocated = largePageCapacity(capacity);
    void* const moved = std::realloc(data_, allocated);
    if (moved == nullptr) throw std::bad_alloc();
    preferLargePages(moved, allocated);
    data_ = static_cast<std::uint8_t*>(moved);
    capacity_ = allocated;
}

// NOLINTEND(cppcoreguidelines-no-malloc, cppcoreguidelines-owning-memory)

void ByteBuffer::append(std::uint8_t byte) {
    *grownEnd(1) = byte;
}

void ByteBuffer::append(const std::uint8_t* bytes, std::size_t count) {
    if (count != 0) std::memcpy(grownEnd(count), bytes, count);
}

void ByteBuffer::appendZeros(std::size_t count) {
    if (count != 0) std::memset(grownEnd(count), 0, count);
}

std::uint8_t* ByteBuffer::grownEnd(std::size_t count) {
    if (count > maxSize - size_) refuseSize();
    const std::size_t needed = size_ + count;
    if (needed > capacity_) {
        const std::size_t doubled = capacity_ > maxSize / 2 ? maxSize : capacity_ * 2;
        reserve(needed > doubled ? needed : doubled);
    }
    std::uint8_t* const oldEnd = data_ + size_;
    size_ = needed;
    return oldEnd;
}

}  // namespace vesk::io::archives
