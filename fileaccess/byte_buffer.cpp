// SPDX-License-Identifier: MIT
// ByteBuffer: its large blocks grow by moving pages, where a container would copy bytes.
#include "fileaccess/byte_buffer.h"

#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

#include "fileaccess/memory_block.h"

namespace vesk::io::archives {

namespace {

// The difference of two pointers into one object must fit into a std::ptrdiff_t.
enum : std::size_t { maxSize = std::numeric_limits<std::ptrdiff_t>::max() };

[[noreturn]] void refuseSize() {
    throw std::length_error("vector::reserve");
}

}  // namespace

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
    freeBlock(data_, capacity_);
}

void ByteBuffer::reserve(std::size_t capacity) {
    if (capacity > maxSize) refuseSize();
    if (capacity <= capacity_) return;
    data_ = static_cast<std::uint8_t*>(growBlock(data_, capacity_, capacity));
    capacity_ = capacity;
}

void ByteBuffer::append(std::uint8_t byte) {
    *extend(1) = byte;
}

void ByteBuffer::append(const std::uint8_t* bytes, std::size_t count) {
    if (count != 0) std::memcpy(extend(count), bytes, count);
}

void ByteBuffer::appendZeros(std::size_t count) {
    if (count != 0) std::memset(extend(count), 0, count);
}

std::uint8_t* ByteBuffer::extend(std::size_t count) {
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
