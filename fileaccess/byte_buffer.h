// SPDX-License-Identifier: MIT
// ByteBuffer: the growable array of bytes that holds a whole file, TAR stream or gzip member.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vesk::io::archives {

/// Owns its bytes; can be moved but not copied. Sizes are in bytes. No member zeroes memory that is
/// about to be overwritten. Where the system can move pages, a large buffer grows without copying.
/// Throws std::bad_alloc when an allocation fails, and std::length_error("vector::reserve") for a
/// size that no buffer can have.
class ByteBuffer {
public:
    ByteBuffer() noexcept = default;

    ByteBuffer(ByteBuffer&& other) noexcept;
    ByteBuffer& operator=(ByteBuffer&& other) noexcept;
    ByteBuffer(const ByteBuffer&) = delete;
    ByteBuffer& operator=(const ByteBuffer&) = delete;
    ~ByteBuffer();

    std::uint8_t* data() noexcept { return data_; }
    const std::uint8_t* data() const noexcept { return data_; }
    std::size_t size() const noexcept { return size_; }
    std::size_t capacity() const noexcept { return capacity_; }
    const std::uint8_t* begin() const noexcept { return data_; }
    const std::uint8_t* end() const noexcept { return data_ + size_; }

    /// Reserves memory for `capacity` bytes in total: appending up to that size never reallocates.
    void reserve(std::size_t capacity);

    /// Appends one byte. This and the following functions at least double the capacity when it is
    /// too small.
    void append(std::uint8_t byte);

    /// Appends `count` bytes from `bytes`, which must not lie in this buffer and may be null when
    /// `count` is 0.
    void append(const std::uint8_t* bytes, std::size_t count);

    /// Appends `count` zero bytes.
    void appendZeros(std::size_t count);

    /// Appends `count` bytes of unspecified content, which the caller overwrites, and returns a
    /// pointer to the first of them. With a count of 0 the pointer may be null.
    std::uint8_t* extend(std::size_t count);

private:
    std::uint8_t* data_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

}  // namespace vesk::io::archives
