// SPDX-License-Identifier: MIT
// Bytes that are read in order, from a regular file or from what is decoded of one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vesk::explanation {

class ByteSource {
public:
    ByteSource() = default;
    virtual ~ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;

    /// Reads `count` bytes into `to`; returns how many were left to be read, which is fewer only at
    /// the end.
    virtual std::size_t read(std::uint8_t* to, std::size_t count) = 0;

    /// Passes over `count` bytes; returns how many there were.
    virtual std::uint64_t skip(std::uint64_t count) = 0;
};

/// A regular file, as long as it was when it was opened.
class FileSource : public ByteSource {
public:
    /// Returns null for whatever cannot be read or is no regular file. Opens no device, and does
    /// not wait for the other end of a FIFO.
    static std::unique_ptr<FileSource> open(const std::string& path);

    ~FileSource() override;
    std::size_t read(std::uint8_t* to, std::size_t count) override;
    std::uint64_t skip(std::uint64_t count) override;

    std::uint64_t size() const { return size_; }
    std::uint64_t position() const { return position_; }
    /// Reading goes on at the byte `position`, which is in the file or at its end.
    void seek(std::uint64_t position) { position_ = position; }

private:
    FileSource(int descriptor, std::uint64_t size);
    void fill();

    int descriptor_;
    std::uint64_t size_;
    std::uint64_t position_ = 0;
    std::vector<std::uint8_t> buffer_;
    /// Where in the file the buffer's bytes are.
    std::uint64_t bufferBegin_ = 0;
    std::size_t bufferLength_ = 0;
};

}  // namespace vesk::explanation
