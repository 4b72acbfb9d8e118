// SPDX-License-Identifier: MIT
// The bytes that are decoded of a gzip file.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "explanation/byte_source.h"

struct inflate_state;

namespace vesk::explanation {

/// What is decoded of one archive at most, in bytes: more than the module takes, so that a small
/// file that decodes to very much is given up in time.
constexpr std::uint64_t mostDecoded = 0x100000000;

/// The header of a member.
struct GzipHeader {
    /// The module's message, and where and what it speaks of; both empty for a header that is
    /// right.
    std::string message;
    std::string finding;
};

/// Reads the header that begins at the file's position and is to end before `payloadEnd`. The
/// file's position is then behind it, or anywhere when it is not right.
GzipHeader readGzipHeader(FileSource& file, std::uint64_t payloadEnd);

/// A DEFLATE stream that begins at the file's position. It is decoded as the stand-in host does, in
/// pieces of the same sizes, so that what is found first is the same.
class Inflation {
public:
    enum class State { going, finished, invalid, cutOff };

    /// The stream has no byte at or behind `limit`.
    Inflation(FileSource& file, std::uint64_t limit);
    ~Inflation();
    Inflation(const Inflation&) = delete;
    Inflation& operator=(const Inflation&) = delete;

    /// Decodes the next piece, which stays as it is until the next call; empty when there is no
    /// more.
    std::span<const std::uint8_t> next();

    /// Goes on to another limit where the stream was cut off at the first.
    void extendTo(std::uint64_t limit);

    State state() const { return state_; }
    /// How many bytes have been decoded, and their CRC-32.
    std::uint64_t decoded() const { return decoded_; }
    std::uint32_t crc() const;
    /// Where in the file the next byte is that has not been used.
    std::uint64_t end() const;

private:
    struct Pieces;

    void provideInput();

    FileSource& file_;
    std::uint64_t limit_;
    std::unique_ptr<inflate_state> decoder_;
    std::unique_ptr<Pieces> pieces_;
    State state_ = State::going;
    std::uint64_t decoded_ = 0;
};

/// What all members of a gzip file decode to, up to what is no member or cannot be decoded.
class GzipSource : public ByteSource {
public:
    explicit GzipSource(std::unique_ptr<FileSource> file) : file_(std::move(file)) {}

    std::size_t read(std::uint8_t* to, std::size_t count) override;
    std::uint64_t skip(std::uint64_t count) override;

private:
    bool provide();
    bool openMember();

    std::unique_ptr<FileSource> file_;
    std::unique_ptr<Inflation> member_;
    std::span<const std::uint8_t> piece_;
    std::uint64_t left_ = mostDecoded;
};

}  // namespace vesk::explanation
