// SPDX-License-Identifier: MIT
// The raw DEFLATE decoder. It uses two buffers of fixed size, whatever the declared sizes.
#include <isa-l/igzip_lib.h>

#include <algorithm>
#include <array>
#include <istream>
#include <memory>
#include <ostream>

#include "module/host/host_runtime.h"
#include "standinhost/call_observer.h"

namespace {

/// Small enough for both buffers to stay in the cache. Much smaller ones would cost speed: the
/// library copies 64 KiB of history in every call.
constexpr std::uint32_t pieceSize = 256 * 1024;

/// The decoder's state and its two buffers. Allocated on the heap, since thread stacks can be
/// small.
struct Decoder {
    inflate_state state;
    std::array<std::uint8_t, pieceSize> input;
    std::array<std::uint8_t, pieceSize> output;
};

/// The bytes of the declared sizes that have not yet been read from `in` or written to `out`.
struct Transfer {
    std::istream& in;
    std::uint64_t inputSize;
    std::uint64_t inputLeft;
    std::ostream& out;
    std::uint64_t outputLeft;
};

std::unique_ptr<Decoder> makeDecoder() {
    // Left uninitialised: zeroing the buffers would cost more than decoding a small archive.
    std::unique_ptr<Decoder> decoder(new Decoder);
    isal_inflate_init(&decoder->state);
    // Raw data without header and trailer; the library computes gzip's CRC-32 of the output.
    decoder->state.crc_flag = ISAL_GZIP_NO_HDR;
    decoder->state.next_in = decoder->input.data();
    decoder->state.avail_in = 0;
    return decoder;
}

/// Refills the input buffer when all of it has been decoded. Returns false when the stream holds
/// fewer bytes than declared.
bool provideInput(Decoder& decoder, Transfer& transfer) {
    if (decoder.state.avail_in != 0 || transfer.inputLeft == 0) return true;

    const std::uint64_t count = std::min<std::uint64_t>(pieceSize, transfer.inputLeft);
    const auto wanted = static_cast<std::streamsize>(count);
    transfer.in.read(reinterpret_cast<char*>(decoder.input.data()), wanted);
    if (transfer.in.gcount() != wanted) return false;

    transfer.inputLeft -= count;
    decoder.state.next_in = decoder.input.data();
    decoder.state.avail_in = static_cast<std::uint32_t>(count);
    return true;
}

/// Decodes from the input buffer, until that is empty or the output buffer is full, and writes what
/// was decoded to the output stream. Returns the message of a failure, or null on success.
const char* decodePiece(Decoder& decoder, Transfer& transfer) {
    decoder.state.next_out = decoder.output.data();
    decoder.state.avail_out = pieceSize;
    if (isal_inflate(&decoder.state) != ISAL_DECOMP_OK) return "Invalid DEFLATE data";

    const std::uint64_t decoded = pieceSize - decoder.state.avail_out;
    // A piece that exceeds the declared size is not written at all.
    if (decoded > transfer.outputLeft) return "DEFLATE output is longer than its declared size";

    transfer.outputLeft -= decoded;
    transfer.out.write(reinterpret_cast<const char*>(decoder.output.data()),
                       static_cast<std::streamsize>(decoded));
    if (!transfer.out) return "Cannot store DEFLATE output";

    vesk::standin::announcePiece(
        {{decoder.output.data(), static_cast<std::size_t>(decoded)},
         transfer.inputSize - transfer.inputLeft - decoder.state.avail_in});
    return nullptr;
}

/// Tells whether the input holds bytes that were not decoded. Whole bytes in the library's bit
/// buffer count too.
bool hasUnusedInput(const inflate_state& state) {
    return state.avail_in != 0 || state.read_in_length >= 8;
}

/// Checks what follows the final block. Returns the message of a failure, or null on success.
const char* checkEnd(Decoder& decoder, Transfer& transfer) {
    if (!provideInput(decoder, transfer)) return "Truncated DEFLATE data";
    if (hasUnusedInput(decoder.state)) return "Unexpected data after DEFLATE stream";
    if (transfer.outputLeft != 0) return "DEFLATE output is shorter than its declared size";
    return nullptr;
}

/// Decodes the whole stream. Returns the message of a failure, or null on success.
const char* decode(Decoder& decoder, Transfer& transfer) {
    const inflate_state& state = decoder.state;
    while (state.block_state != ISAL_BLOCK_FINISH) {
        if (!provideInput(decoder, transfer)) return "Truncated DEFLATE data";
        if (const char* message = decodePiece(decoder, transfer)) return message;

        const bool starved = state.avail_in == 0 && transfer.inputLeft == 0 && state.avail_out != 0;
        if (starved && state.block_state != ISAL_BLOCK_FINISH) return "Truncated DEFLATE data";
    }
    return checkEnd(decoder, transfer);
}

}  // namespace

bool vesk::runtime::zip::inflateRaw(std::istream& in, std::uint64_t compressedSize,
                                    std::uint64_t uncompressedSize, std::ostream& out,
                                    std::uint32_t& crc, std::string& error) {
    const std::unique_ptr<Decoder> decoder = makeDecoder();
    Transfer transfer{in, compressedSize, compressedSize, out, uncompressedSize};
    if (const char* message = decode(*decoder, transfer)) {
        error = message;
        return false;
    }
    crc = decoder->state.crc;
    return true;
}
