// SPDX-License-Identifier: MIT
// Fuzz target: the stand-in host's inflater against zlib. The input's first byte chooses how the
// declared size relates to the true one, the second how large the pieces are that the stream gives;
// the rest is raw DEFLATE data.
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <istream>
#include <sstream>
#include <streambuf>
#include <string>

#include "fuzz/inflate_model.h"
#include "fuzz/require.h"
#include "module/host/host_runtime.h"

namespace fuzzing = vesk::fuzzing;

namespace {

// Gives `bytes` in pieces of `pieceSize`, each in an allocation of its own.
class PieceBuffer : public std::streambuf {
public:
    PieceBuffer(std::string_view bytes, std::size_t pieceSize)
        : rest_(bytes), pieceSize_(pieceSize) {}

protected:
    int_type underflow() override {
        if (rest_.empty()) return traits_type::eof();
        const std::size_t count = std::min(pieceSize_, rest_.size());
        piece_.assign(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(count));
        rest_.remove_prefix(count);
        setg(piece_.data(), piece_.data(), piece_.data() + count);
        return traits_type::to_int_type(piece_[0]);
    }

private:
    std::string_view rest_;
    std::size_t pieceSize_;
    std::string piece_;
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
    std::string content;
    std::uint32_t crc;
    std::string error;
};

Decoded inflateWithStandIn(std::string_view packed, std::uint64_t size, std::size_t pieceSize) {
    PieceBuffer pieces(packed, pieceSize);
    std::istream in(&pieces);
    std::ostringstream out;
    Decoded decoded{};
    decoded.accepted =
        vesk::runtime::zip::inflateRaw(in, packed.size(), size, out, decoded.crc, decoded.error);
    decoded.content = std::move(out).str();
    return decoded;
}

// What holds for all that is accepted, whatever zlib thinks of it.
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
    if (expected.end == fuzzing::Inflated::End::doubtful) return;

    const auto refusals = fuzzing::refusalsOf(expected, declared);
    if (decoded.accepted) {
        fuzzing::require(refusals.empty(), "what must be refused is refused",
                         refusals.empty() ? "" : *refusals.begin());
        fuzzing::require(decoded.content == expected.content, "both decode to the same bytes");
    } else {
        fuzzing::require(refusals.contains(decoded.error), "a refusal has its reason",
                         decoded.error);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The output is up to 1032 times as long.
    if (size < 3 || size > 16384) return 0;
    const std::string_view packed(reinterpret_cast<const char*>(data) + 2, size - 2);
    const fuzzing::Inflated expected = fuzzing::inflateWithZlib(packed);
    const std::uint64_t declared = declaredSize(expected.content.size(), data[0]);
    compare(expected, inflateWithStandIn(packed, declared, std::size_t{1} + data[1]), declared);
    return 0;
}
