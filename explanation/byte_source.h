// SPDX-License-Identifier: MIT
// Bytes read in order: those of a regular file, or those decoded from one.
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

    /// Reads up to `count` bytes into `to`. Returns how many were read: fewer than `count` only at
    /// the end.
    virtual std::size_t read(std::uint8_t* to, std::size_t count) = 0;

    /// Skips up to `count` bytes. Returns how many were skipped.
    virtual std::uint64_t skip(std::uint64_t count) = 0;
};

/// A regular file. It counts as having the size that it had when it was opened.
class FileSource : public ByteSource {
public:
    /// Returns null if the path cannot be read or is no regular file. Opens no device, and does not
    /// wait for the other end of a FIFO.
    static std::unique_ptr<FileSource> open(const std::string& path);

    ~FileSource() override;
    std::size_t read(std::uint8_t* to, std::size_t count) override;
    std::uint64_t skip(std::uint64_t count) override;

    std::uint64_t size() const { return size_; }
    std::uint64_t position() const { return position_; }
    /// Reading continues at the byte `position`, which is in the file or at its end.
    void seek(std::uint64_t position) { position_ = position; }

private:
    FileSource(int descriptor, std::uint64_t size);
    void fill();

    int descriptor_;
    std::uint64_t size_;
    std::uint64_t position_ = 0;
    std::vector<std::uint8_t> buffer_;
    /// The buffer's position in the file.
    std::uint64_t bufferBegin_ = 0;
    std::size_t bufferLength_ = 0;
};

}  // namespace vesk::explanation
