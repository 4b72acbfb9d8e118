// SPDX-License-Identifier: MIT
// A slow and plain reader of a DEFLATE block's header.
#include "fuzz/block_codes.h"

#include <array>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace vesk::fuzzing {

namespace {

using Lengths = std::vector<std::size_t>;

struct BitReader {
    std::string_view bytes;
    std::size_t position;

    // Returns zeros after the end: a set that is read from there on is not found overfull.
    std::size_t bits(std::size_t count) {
        std::size_t value = 0;
        for (std::size_t i = 0; i < count; ++i, ++position) {
            if (position / 8 >= bytes.size()) continue;
            const auto byte = static_cast<unsigned char>(bytes[position / 8]);
            value |= (std::size_t{byte} >> position % 8 & 1) << i;
        }
        return value;
    }
};

// Each length takes a share of all codes of 15 bits.
bool isOverfull(const Lengths& lengths) {
    std::size_t taken = 0;
    for (const std::size_t length : lengths)
        if (length != 0) taken += std::size_t{1} << (15 - length);
    return taken > std::size_t{1} << 15;
}

// Returns the canonical codes, each as its length and value.
std::map<std::pair<std::size_t, std::size_t>, std::size_t> symbolsOf(const Lengths& lengths) {
    std::map<std::pair<std::size_t, std::size_t>, std::size_t> symbols;
    std::size_t code = 0;
    for (std::size_t length = 1; length <= 7; ++length, code <<= 1)
        for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol)
            if (lengths[symbol] == length) symbols[{length, code++}] = symbol;
    return symbols;
}

Lengths readLengthCode(BitReader& reader, std::size_t count) {
    constexpr std::array order = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
    Lengths lengths(order.size());
    for (std::size_t i = 0; i < count; ++i)
        lengths[static_cast<std::size_t>(order.at(i))] = reader.bits(3);
    return lengths;
}

// Reads `count` lengths in the given code. Returns nothing when they cannot be read.
std::optional<Lengths> readLengths(BitReader& reader, const Lengths& code, std::size_t count) {
    const auto symbols = symbolsOf(code);
    Lengths lengths;
    while (lengths.size() < count) {
        std::size_t value = 0;
        std::size_t bits = 0;
        while (!symbols.contains({bits, value})) {
            if (bits++ == 7) return std::nullopt;
            value = value << 1 | reader.bits(1);
        }
        const std::size_t symbol = symbols.at({bits, value});
        if (symbol == 16 && lengths.empty()) return std::nullopt;
        if (symbol < 16) lengths.push_back(symbol);
        if (symbol == 16) lengths.insert(lengths.end(), 3 + reader.bits(2), lengths.back());
        if (symbol == 17) lengths.insert(lengths.end(), 3 + reader.bits(3), 0);
        if (symbol == 18) lengths.insert(lengths.end(), 11 + reader.bits(7), 0);
    }
    if (lengths.size() > count) return std::nullopt;
    return lengths;
}

}  // namespace

bool hasOverfullCode(std::string_view packed, std::size_t bit) {
    BitReader reader{packed, bit + 1};
    if (reader.bits(2) != 2) return false;
    const std::size_t literals = 257 + reader.bits(5);
    const std::size_t distances = 1 + reader.bits(5);
    const Lengths code = readLengthCode(reader, 4 + reader.bits(4));
    if (isOverfull(code)) return true;

    const auto lengths = readLengths(reader, code, literals + distances);
    if (!lengths) return false;
    const auto border = lengths->begin() + static_cast<std::ptrdiff_t>(literals);
    return isOverfull({lengths->begin(), border}) || isOverfull({border, lengths->end()});
}

}  // namespace vesk::fuzzing
