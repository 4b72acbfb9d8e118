// SPDX-License-Identifier: MIT
// The second reader of gzip members.
#include "fuzz/gzip_model.h"

#include <zlib.h>

#include <cstdint>
#include <sstream>
#include <utility>

#include "fuzz/inflate_model.h"
#include "module/host/host_runtime.h"

namespace vesk::fuzzing {

namespace {

std::uint32_t littleEndian(std::string_view bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    return value;
}

std::uint32_t crc32Of(std::string_view bytes) {
    const auto* const first = reinterpret_cast<const Bytef*>(bytes.data());
    return static_cast<std::uint32_t>(crc32_z(0, first, bytes.size()));
}

// A member without its trailer, and the number of bytes read so far.
struct HeaderReader {
    std::string_view bytes;
    std::size_t position;

    bool text() {
        const std::size_t zero = bytes.find('\0', position);
        if (zero == std::string_view::npos) return false;
        position = zero + 1;
        return true;
    }

    bool extra() {
        if (bytes.size() < 12) return false;
        position = 12 + littleEndian(bytes.substr(10, 2));
        return position <= bytes.size();
    }
};

// Reads the header. Returns the message of a failure, or an empty text.
std::string readHeader(HeaderReader& reader) {
    const auto flags = static_cast<unsigned char>(reader.bytes[3]);
    if (flags >= 32) return "Invalid gzip flags";
    if ((flags & 4) != 0 && !reader.extra()) return "Truncated gzip extra field";
    if ((flags & 8) != 0 && !reader.text()) return "Truncated gzip file name";
    if ((flags & 16) != 0 && !reader.text()) return "Truncated gzip comment";
    if ((flags & 2) != 0) {
        if (reader.bytes.size() - reader.position < 2) return "Truncated gzip header checksum";
        const std::uint32_t stored = littleEndian(reader.bytes.substr(reader.position, 2));
        if (stored != crc32Of(reader.bytes.substr(0, reader.position)) % 65536)
            return "Invalid gzip header checksum";
        reader.position += 2;
    }
    if (reader.position == reader.bytes.size()) return "Missing gzip DEFLATE payload";
    return "";
}

ExpectedContent inflateByHost(std::string_view packed, std::uint64_t declaredSize) {
    std::istringstream in{std::string(packed)};
    std::ostringstream out;
    std::uint32_t crc = 0;
    std::string error;
    if (!runtime::zip::inflateRaw(in, packed.size(), declaredSize, out, crc, error))
        return {{error}, {}};
    return {{}, std::move(out).str()};
}

// Where zlib cannot judge, the module must pass on the inflater's own result.
ExpectedContent expectedInflation(std::string_view packed, std::uint64_t declaredSize) {
    Inflated inflated = inflateWithZlib(packed);
    if (inflated.end == Inflated::End::doubtful) return inflateByHost(packed, declaredSize);
    return {refusalsOf(inflated, declaredSize), std::move(inflated.content)};
}

}  // namespace

ExpectedContent expectedContent(std::string_view file) {
    if (file.size() < 18 || !file.starts_with("\x1F\x8B\x08")) return {{"Invalid gzip stream"}, {}};

    HeaderReader reader{file.substr(0, file.size() - 8), 10};
    const std::string message = readHeader(reader);
    if (!message.empty()) return {{message}, {}};

    const std::string_view trailer = file.substr(file.size() - 8);
    ExpectedContent expected =
        expectedInflation(reader.bytes.substr(reader.position), littleEndian(trailer.substr(4)));
    if (expected.refusals.empty() &&
        crc32Of(expected.content) != littleEndian(trailer.substr(0, 4)))
        return {{"Invalid gzip checksum"}, {}};
    return expected;
}

}  // namespace vesk::fuzzing
