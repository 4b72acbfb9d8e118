// SPDX-License-Identifier: MIT
// Fuzz target: the inflater of the stand-in host, compared with zlib. The first byte of the input
// chooses the declared size relative to the true one, the second byte chooses where the decoder's
// first piece of input ends. The rest is raw DEFLATE data.
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <istream>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

#include "fuzz/inflate_model.h"
#include "fuzz/require.h"
#include "module/host/host_runtime.h"
#include "tests/support/gzip_bytes.h"

namespace fuzzing = vesk::fuzzing;
using vesk::testing::littleEndian;

namespace {

// The number of bytes that the inflater reads at once; see standinhost/inflate.cpp.
constexpr std::size_t pieceSize = 256 * 1024;

void appendStored(std::string& packed, std::size_t count) {
    const auto length = static_cast<std::uint32_t>(count);
    packed += '\0' + littleEndian(length, 2) + littleEndian(~length, 2);
    packed.append(count, 'f');
}

// Appends stored blocks of `size` bytes in total, including their headers.
void appendFiller(std::string& packed, std::size_t size) {
    constexpr std::size_t header = 5;
    while (size > 0) {
        std::size_t block = std::min<std::size_t>(65535 + header, size);
        // The remaining bytes must be enough for a header.
        if (block < size && size - block < header) block -= header;
        appendStored(packed, block - header);
        size -= block;
    }
}

// Returns the data, for most choices after so much filler that the decoder's first piece ends
// within the data: at one of its first 127 bytes, or at a later one. Valid until the next call.
std::string& cutAt(std::string_view data, std::uint8_t choice) {
    // Static, since allocating it for each run would take longer than the run.
    static std::string packed;
    packed.clear();
    if (choice != 0) {
        const std::size_t place = choice < 128 ? choice : (choice - 126) * std::size_t{64};
        appendFiller(packed, pieceSize - place);
    }
    return packed.append(data);
}

class InputBuffer : public std::streambuf {
public:
    explicit InputBuffer(std::string& bytes) {
        setg(bytes.data(), bytes.data(), bytes.data() + bytes.size());
    }
};

class OutputBuffer : public std::streambuf {
public:
    explicit OutputBuffer(std::string& bytes) : bytes_(bytes) {}

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
        bytes_.append(bytes, static_cast<std::size_t>(count));
        return count;
    }
    int_type overflow(int_type byte) override {
        bytes_ += traits_type::to_char_type(byte);
        return byte;
    }

private:
    std::string& bytes_;
};

std::uint64_t declaredSize(std::uint64_t size, std::uint8_t choice) {
    switch (choice % 8) {
        case 0:
            return size + 1 + choice / 8;
        case 1:
            return size - std::min<std::uint64_t>(size, 1 + choice / 8);
        case 2:
            return size * 2;
        case 3:
            return choice / 8 * std::uint64_t{4096};
        default:
            return size;
    }
}

struct Decoded {
    bool accepted;
    const std::string& content;  // valid until the next call
    std::uint32_t crc;
    std::string error;
};

Decoded inflateWithStandIn(std::string& packed, std::uint64_t size) {
    static std::string content;
    content.clear();
    InputBuffer input(packed);
    OutputBuffer output(content);
    std::istream in(&input);
    std::ostream out(&output);
    Decoded decoded{false, content, 0, {}};
    decoded.accepted =
        vesk::runtime::zip::inflateRaw(in, packed.size(), size, out, decoded.crc, decoded.error);
    return decoded;
}

// Checks what must hold for all accepted data, whatever zlib says about it.
void checkAccepted(const Decoded& decoded, std::uint64_t declared) {
    const auto* const bytes = reinterpret_cast<const Bytef*>(decoded.content.data());
    fuzzing::require(decoded.content.size() == declared, "as much is written as was declared");
    fuzzing::require(decoded.crc == crc32_z(0, bytes, decoded.content.size()),
                     "the CRC-32 is that of the output");
    fuzzing::require(decoded.error.empty(), "success leaves the error text alone");
}

void compare(const fuzzing::Inflated& expected, const Decoded& decoded, std::uint64_t declared) {
    fuzzing::require(decoded.content.size() <= declared, "no more is written than was declared");
    if (decoded.accepted) checkAccepted(decoded, declared);

    const auto refusals = fuzzing::refusalsOf(expected, declared);
    const bool mayBeAccepted = expected.end == fuzzing::Inflated::End::doubtful;
    if (!decoded.accepted) {
        fuzzing::require(refusals.contains(decoded.error), "a refusal has its reason",
                         decoded.error);
    } else if (!mayBeAccepted) {
        fuzzing::require(refusals.empty(), "what must be refused is refused",
                         refusals.empty() ? "" : *refusals.begin());
        fuzzing::require(decoded.content == expected.content, "both decode to the same bytes");
    }
}

// Checks that the stand-in finds as many bytes after the final block as zlib.
void checkEnd(const fuzzing::Inflated& expected, std::string& packed) {
    const std::size_t size = expected.content.size();
    packed.resize(packed.size() - expected.unused);
    fuzzing::require(inflateWithStandIn(packed, size).accepted, "the end is the same");
    packed.pop_back();
    fuzzing::require(inflateWithStandIn(packed, size).error == "Truncated DEFLATE data",
                     "the last byte is needed");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The output can be up to 1032 times as long.
    if (size < 3 || size > 16384) return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    std::string& packed = cutAt(bytes.substr(2), data[1]);
    const fuzzing::Inflated expected = fuzzing::inflateWithZlib(packed);
    const std::uint64_t declared = declaredSize(expected.content.size(), data[0]);
    compare(expected, inflateWithStandIn(packed, declared), declared);
    const bool chosen = data[0] % 8 == 7;
    if (chosen && expected.end == fuzzing::Inflated::End::complete) checkEnd(expected, packed);
    return 0;
}
