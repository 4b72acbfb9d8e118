// SPDX-License-Identifier: MIT
// Reading a gzip member: what the module takes for the trailer, and what is really there.
#include "explanation/gzip_reading.h"

#include <algorithm>
#include <array>

#include "explanation/file_kind.h"
#include "explanation/gzip_source.h"
#include "explanation/text.h"
#include "gzip/member_format.h"
#include "tar/header_block.h"
#include "tar/octal_field.h"

namespace vesk::explanation {

namespace {

using namespace vesk::io::archives;
using Cause = GzipReading::Cause;

bool isTarHeader(std::span<const std::uint8_t, tarBlockSize> block) {
    return tarParseOctal(TarChksum::in(block.data()), TarChksum::width) == tarHeaderChecksum(block);
}

bool beginsAsGzip(FileSource& file) {
    std::array<std::uint8_t, 2> magic{};
    file.read(magic.data(), magic.size());
    file.seek(0);
    return magic[0] == gzipId1 && magic[1] == gzipId2;
}

/// For a file that is too short or does not begin like gzip.
GzipReading readForeign(FileSource& file, const std::string& name) {
    std::array<std::uint8_t, tarBlockSize> beginning{};
    const std::size_t length = file.read(beginning.data(), beginning.size());
    GzipReading found{Cause::noGzip, "Invalid gzip stream", name + ": "};
    const FileKind kind = kindOfBytes(std::span(beginning).first(length));
    if (length == 0) {
        found.finding += "empty, 0 bytes";
    } else if (length == beginning.size() && isTarHeader(beginning)) {
        found.cause = Cause::plainTar;
        found.finding += "a TAR archive that is not compressed";
    } else if (!kind.name.empty() && kind.name != "a gzip file") {
        if (kind.isReadable) found.cause = Cause::foreign;
        found.finding += kind.name;
    } else {
        found.cause = Cause::damaged;
        found.finding += "its " + bytes(file.size()) + " are no gzip file";
    }
    return found;
}

void decode(Inflation& inflation, std::uint64_t atMost) {
    while (inflation.decoded() <= atMost && !inflation.next().empty()) {
    }
}

/// Decodes up to the trailer. Returns the message for the first fault; empty if there is none.
std::string readAsHost(Inflation& inflation, const GzipTrailer& trailer, std::uint64_t payloadEnd) {
    decode(inflation, trailer.length);
    if (inflation.decoded() > trailer.length)
        return "DEFLATE output is longer than its declared size";
    if (inflation.state() == Inflation::State::invalid) return "Invalid DEFLATE data";
    if (inflation.state() == Inflation::State::cutOff) return "Truncated DEFLATE data";
    if (inflation.end() < payloadEnd) return "Unexpected data after DEFLATE stream";
    if (inflation.decoded() < trailer.length)
        return "DEFLATE output is shorter than its declared size";
    return inflation.crc() == trailer.crc ? "" : "Invalid gzip checksum";
}

/// Finds out what follows the member that ends at the file's position.
Cause causeBehind(FileSource& file) {
    std::array<std::uint8_t, 4096> piece{};
    const std::uint64_t begin = file.position();
    if (readGzipHeader(file, file.size()).message.empty()) return Cause::members;
    file.seek(begin);
    while (const std::size_t length = file.read(piece.data(), piece.size())) {
        const auto read = std::span(piece).first(length);
        if (std::any_of(read.begin(), read.end(), [](std::uint8_t byte) { return byte != 0; }))
            return Cause::appendage;
    }
    return Cause::padding;
}

void describeBehind(FileSource& file, const std::string& name, GzipReading& found) {
    file.seek(found.end);
    found.cause = causeBehind(file);
    const std::string count = bytes(file.size() - found.end);
    const std::string what = found.cause == Cause::members   ? "another gzip member"
                             : found.cause == Cause::padding ? count + " of zeros"
                                                             : count + " that are no gzip";
    found.finding =
        name + ", byte " + std::to_string(found.end) + ": " + what + " behind the compressed data";
}

void describeTrailer(const Inflation& inflation, const GzipTrailer& trailer,
                     const std::string& name, GzipReading& found) {
    found.cause = Cause::damaged;
    found.finding = name + ": ";
    if (inflation.decoded() == trailer.length) {
        found.finding += "its CRC-32 is " + hexadecimal(trailer.crc, 8) + ", the data give " +
                         hexadecimal(inflation.crc(), 8);
    } else {
        found.finding += "its trailer says " + bytes(trailer.length) + ", the data have " +
                         std::to_string(inflation.decoded());
    }
}

void describeData(FileSource& file, const Inflation& inflation, const std::string& name,
                  GzipReading& found) {
    found.cause = Cause::damaged;
    found.end = inflation.end() + gzipTrailerSize;
    if (inflation.decoded() >= mostDecoded) {
        found.cause = Cause::tooLarge;
        found.finding = name + ": decodes to more than 4294967295 bytes";
    } else if (inflation.state() == Inflation::State::invalid) {
        found.finding = name + ": damaged before byte " + std::to_string(inflation.end());
    } else if (inflation.state() == Inflation::State::cutOff) {
        found.finding = name + ": cut off at byte " + std::to_string(file.size()) +
                        ", amid the compressed data";
    } else if (found.end > file.size()) {
        found.finding = name + ": cut off at byte " + std::to_string(file.size()) + ", " +
                        bytes(found.end - file.size()) + " missing";
    } else {
        const GzipTrailer own = readTrailer(file, found.end - gzipTrailerSize);
        const bool isLast = found.end == file.size();
        if (isLast || !isRight(own, inflation)) return describeTrailer(inflation, own, name, found);
        describeBehind(file, name, found);
    }
}

}  // namespace

GzipReading readGzip(FileSource& file, const std::string& name) {
    constexpr std::uint64_t shortest = gzipHeaderSize + gzipTrailerSize;
    if (file.size() < shortest || !beginsAsGzip(file)) return readForeign(file, name);

    const std::uint64_t payloadEnd = file.size() - gzipTrailerSize;
    const GzipHeader header = readGzipHeader(file, payloadEnd);
    if (!header.message.empty()) return {Cause::damaged, header.message, name + header.finding};

    const std::uint64_t begin = file.position();
    const GzipTrailer trailer = readTrailer(file, payloadEnd);
    file.seek(begin);
    Inflation inflation(file, payloadEnd);
    GzipReading found;
    found.message = readAsHost(inflation, trailer, payloadEnd);
    if (found.message.empty()) return found;

    // The last eight bytes may be no trailer. This decodes what is really there.
    inflation.extendTo(file.size());
    decode(inflation, mostDecoded - 1);
    describeData(file, inflation, name, found);
    return found;
}

}  // namespace vesk::explanation
