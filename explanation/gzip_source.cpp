// SPDX-License-Identifier: MIT
// Decoding a gzip file in pieces.
#include "explanation/gzip_source.h"

#include <isa-l/igzip_lib.h>

#include <algorithm>

#include "explanation/text.h"
#include "gzip/member_format.h"

namespace vesk::explanation {

namespace {

using namespace vesk::io::archives;

/// Reads a header byte by byte and computes its checksum.
class HeaderReader {
public:
    HeaderReader(FileSource& file, std::uint64_t end) : file_(file), end_(end) {}

    /// Returns whether there is another byte before the end.
    bool next(std::uint8_t& byte) {
        if (file_.position() >= end_ || file_.read(&byte, 1) == 0) return false;
        crc_ = vesk::runtime::zip::crc32Update(crc_, &byte, 1);
        return true;
    }

    bool nextNumber(std::uint32_t& number) {
        std::uint8_t low = 0;
        std::uint8_t high = 0;
        if (!next(low) || !next(high)) return false;
        number = low | std::uint32_t{high} << 8;
        return true;
    }

    bool passText() {
        std::uint8_t byte = 0;
        while (next(byte)) {
            if (byte == 0) return true;
        }
        return false;
    }

    bool passBytes(std::uint32_t count) {
        std::uint8_t byte = 0;
        while (count > 0 && next(byte))
            --count;
        return count == 0;
    }

    std::uint32_t crc16() const { return ~crc_ & 0xFFFF; }
    std::uint64_t position() const { return file_.position(); }

private:
    FileSource& file_;
    std::uint64_t end_;
    std::uint32_t crc_ = 0xFFFFFFFF;
};

enum Flag : std::uint8_t { hasChecksum = 2, hasExtra = 4, hasName = 8, hasComment = 16 };

GzipHeader refuse(const char* message, std::uint64_t position, const std::string& words) {
    return {message, ", byte " + std::to_string(position) + ": " + words};
}

GzipHeader readExtraField(HeaderReader& header) {
    const std::uint64_t begin = header.position();
    std::uint32_t length = 0;
    if (header.nextNumber(length) && header.passBytes(length)) return {};
    return refuse("Truncated gzip extra field", begin,
                  "an extra field of " + bytes(length) + " does not fit");
}

GzipHeader readText(HeaderReader& header, const char* message, const std::string& what) {
    const std::uint64_t begin = header.position();
    if (header.passText()) return {};
    return refuse(message, begin, what + " that does not end");
}

GzipHeader readChecksum(HeaderReader& header) {
    const std::uint64_t begin = header.position();
    const std::uint32_t sum = header.crc16();
    std::uint32_t stored = 0;
    if (!header.nextNumber(stored))
        return refuse("Truncated gzip header checksum", begin,
                      "the header's checksum does not fit");
    if (stored == sum) return {};
    return refuse("Invalid gzip header checksum", begin,
                  "the header's checksum is " + hexadecimal(stored, 4) + ", its bytes give " +
                      hexadecimal(sum, 4));
}

GzipHeader readOptionalFields(HeaderReader& header, std::uint8_t flags) {
    GzipHeader read;
    if ((flags & hasExtra) != 0) read = readExtraField(header);
    if (read.message.empty() && (flags & hasName) != 0)
        read = readText(header, "Truncated gzip file name", "a file name");
    if (read.message.empty() && (flags & hasComment) != 0)
        read = readText(header, "Truncated gzip comment", "a comment");
    if (read.message.empty() && (flags & hasChecksum) != 0) read = readChecksum(header);
    return read;
}

}  // namespace

GzipHeader readGzipHeader(FileSource& file, std::uint64_t payloadEnd) {
    HeaderReader header(file, payloadEnd);
    std::array<std::uint8_t, gzipHeaderSize> fixed{};
    for (std::uint8_t& byte : fixed) {
        if (!header.next(byte)) return refuse("Invalid gzip stream", 0, "too short for a header");
    }
    if (fixed[0] != gzipId1 || fixed[1] != gzipId2)
        return refuse("Invalid gzip stream", 0, "no gzip header");
    if (fixed[2] != gzipDeflate)
        return refuse("Invalid gzip stream", 2,
                      "compression method " + std::to_string(fixed[2]) + ", where gzip has 8");
    if (fixed[3] > 0x1F)
        return refuse("Invalid gzip flags", 3, "flags that the format does not have");
    GzipHeader read = readOptionalFields(header, fixed[3]);
    if (read.message.empty() && header.position() >= payloadEnd)
        read = refuse("Missing gzip DEFLATE payload", header.position(),
                      "no data between the header and the trailer");
    return read;
}

struct Inflation::Pieces {
    std::array<std::uint8_t, inflationPiece> input;
    std::array<std::uint8_t, inflationPiece> output;
};

GzipTrailer readTrailer(FileSource& file, std::uint64_t begin) {
    std::array<std::uint8_t, gzipTrailerSize> trailer{};
    file.seek(std::min(begin, file.size()));
    file.read(trailer.data(), trailer.size());
    const auto number = [&](std::size_t at) {
        return trailer.at(at) | std::uint32_t{trailer.at(at + 1)} << 8 |
               std::uint32_t{trailer.at(at + 2)} << 16 | std::uint32_t{trailer.at(at + 3)} << 24;
    };
    return {number(0), number(4)};
}

Inflation::Inflation(FileSource& file, std::uint64_t limit, std::uint32_t firstInput)
    : file_(file),
      limit_(limit),
      nextInput_(firstInput),
      decoder_(new inflate_state),
      pieces_(new Pieces) {
    isal_inflate_init(decoder_.get());
    // Raw data without header and trailer, but with gzip's CRC-32 of the output.
    decoder_->crc_flag = ISAL_GZIP_NO_HDR;
    decoder_->avail_in = 0;
}

Inflation::~Inflation() = default;

void Inflation::extendTo(std::uint64_t limit) {
    limit_ = limit;
    if (state_ == State::cutOff) state_ = State::going;
}

void Inflation::provideInput() {
    const auto wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(nextInput_, limit_ - file_.position()));
    nextInput_ = std::min(nextInput_ * 4, inflationPiece);
    decoder_->next_in = pieces_->input.data();
    decoder_->avail_in = static_cast<std::uint32_t>(file_.read(pieces_->input.data(), wanted));
}

std::span<const std::uint8_t> Inflation::next() {
    std::size_t length = 0;
    while (state_ == State::going && length == 0) {
        if (decoder_->avail_in == 0) provideInput();
        const bool isLast = decoder_->avail_in == 0;
        decoder_->next_out = pieces_->output.data();
        decoder_->avail_out = inflationPiece;
        const bool isValid = isal_inflate(decoder_.get()) == ISAL_DECOMP_OK;
        length = isValid ? inflationPiece - decoder_->avail_out : 0;
        if (!isValid) {
            state_ = State::invalid;
        } else if (decoder_->block_state == ISAL_BLOCK_FINISH) {
            state_ = State::finished;
        } else if (isLast && length == 0) {
            state_ = State::cutOff;
        }
    }
    decoded_ += length;
    return std::span(pieces_->output).first(length);
}

std::uint32_t Inflation::crc() const {
    return decoder_->crc;
}

std::uint64_t Inflation::end() const {
    // Negative if the last byte is missing: the decoder has then used more than there was.
    const std::int64_t unread = static_cast<std::int32_t>(decoder_->avail_in);
    const std::int64_t inBits = std::max(decoder_->read_in_length, 0) / 8;
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(file_.position()) - unread -
                                      inBits);
}

bool isRight(const GzipTrailer& trailer, const Inflation& decoded) {
    return trailer.crc == decoded.crc() &&
           trailer.length == static_cast<std::uint32_t>(decoded.decoded());
}

/// Goes on to the next member. Returns false when there is none.
bool GzipSource::openMember() {
    if (hasEnded_) return false;
    hasEnded_ = true;
    if (member_) {
        if (member_->state() != Inflation::State::finished) return false;
        isDamaged_ = !isRight(readTrailer(*file_, member_->end()), *member_);
    }
    if (isDamaged_ || !readGzipHeader(*file_, file_->size()).message.empty()) return false;
    hasEnded_ = false;
    // There may be a million small members.
    constexpr std::uint32_t firstInput = 512;
    member_ = std::make_unique<Inflation>(*file_, file_->size(), firstInput);
    return true;
}

/// Provides a piece that is not empty. Returns false at the end.
bool GzipSource::provide() {
    while (piece_.empty() && left_ > 0) {
        if (member_) piece_ = member_->next();
        if (piece_.empty() && !openMember()) return false;
    }
    piece_ = piece_.first(static_cast<std::size_t>(std::min<std::uint64_t>(piece_.size(), left_)));
    return !piece_.empty();
}

std::size_t GzipSource::read(std::uint8_t* to, std::size_t count) {
    std::size_t done = 0;
    while (done < count && provide()) {
        const std::size_t length = std::min(count - done, piece_.size());
        std::copy_n(piece_.data(), length, to + done);
        piece_ = piece_.subspan(length);
        left_ -= length;
        done += length;
    }
    return done;
}

std::uint64_t GzipSource::skip(std::uint64_t count) {
    std::uint64_t done = 0;
    while (done < count && provide()) {
        const std::uint64_t length = std::min<std::uint64_t>(count - done, piece_.size());
        piece_ = piece_.subspan(static_cast<std::size_t>(length));
        left_ -= length;
        done += length;
    }
    return done;
}

}  // namespace vesk::explanation
