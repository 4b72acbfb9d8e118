// SPDX-License-Identifier: MIT
// The bytes decoded from a gzip file.
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

/// How much is decoded of one archive, in bytes: more than the module accepts. So a small file that
/// expands enormously is given up in time.
constexpr std::uint64_t mostDecoded = 0x100000000;

/// In bytes, as in the stand-in host.
constexpr std::uint32_t inflationPiece = 256 * 1024;

/// The header of a member.
struct GzipHeader {
    /// The module's message, and where and what the fault is. Both are empty if the header is
    /// valid.
    std::string message;
    std::string finding;
};

/// Reads the header that begins at the file's position and must end before `payloadEnd`. Leaves the
/// file's position behind the header; anywhere if the header is invalid.
GzipHeader readGzipHeader(FileSource& file, std::uint64_t payloadEnd);

/// The end of a member: the CRC-32 of its content, and the content's length modulo 2^32.
struct GzipTrailer {
    std::uint32_t crc = 0;
    std::uint32_t length = 0;
};

/// Reads the eight bytes from the offset `begin` on, and leaves the file's position behind them.
/// Bytes that the file lacks are taken for zeros.
GzipTrailer readTrailer(FileSource& file, std::uint64_t begin);

/// A DEFLATE stream that begins at the file's position. It is decoded in pieces of the same sizes
/// as in the stand-in host, so that the same fault is found first.
class Inflation {
public:
    enum class State { going, finished, invalid, cutOff };

    /// The stream ends before the offset `limit`. The first `firstInput` bytes of the file are read
    /// as one piece, then larger pieces, up to the size of `inflationPiece`.
    Inflation(FileSource& file, std::uint64_t limit, std::uint32_t firstInput = inflationPiece);
    ~Inflation();
    Inflation(const Inflation&) = delete;
    Inflation& operator=(const Inflation&) = delete;

    /// Decodes the next piece. It is valid until the next call, and empty at the end.
    std::span<const std::uint8_t> next();

    /// Continues up to a new limit after the stream was cut off at the old one.
    void extendTo(std::uint64_t limit);

    State state() const { return state_; }
    /// The number of bytes decoded so far, and their CRC-32.
    std::uint64_t decoded() const { return decoded_; }
    std::uint32_t crc() const;
    /// The offset of the first byte in the file that has not been used.
    std::uint64_t end() const;

private:
    struct Pieces;

    void provideInput();

    FileSource& file_;
    std::uint64_t limit_;
    std::uint32_t nextInput_;
    std::unique_ptr<inflate_state> decoder_;
    std::unique_ptr<Pieces> pieces_;
    State state_ = State::going;
    std::uint64_t decoded_ = 0;
};

/// The decoded content of all members of a gzip file. It ends at the first bytes that are no member
/// or cannot be decoded, and behind a member that is damaged.
class GzipSource : public ByteSource {
public:
    explicit GzipSource(std::unique_ptr<FileSource> file) : file_(std::move(file)) {}

    std::size_t read(std::uint8_t* to, std::size_t count) override;
    std::uint64_t skip(std::uint64_t count) override;

    /// Returns whether a member that was read to its end has another checksum or length than its
    /// trailer says.
    bool isDamaged() const { return isDamaged_; }

private:
    bool provide();
    bool openMember();

    std::unique_ptr<FileSource> file_;
    std::unique_ptr<Inflation> member_;
    std::span<const std::uint8_t> piece_;
    std::uint64_t left_ = mostDecoded;
    bool hasEnded_ = false;
    bool isDamaged_ = false;
};

/// Returns whether the trailer is that of what was decoded.
bool isRight(const GzipTrailer& trailer, const Inflation& decoded);

}  // namespace vesk::explanation
