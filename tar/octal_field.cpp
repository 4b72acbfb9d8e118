// SPDX-License-Identifier: MIT
// Reading and writing the octal numbers in a ustar header block.
#include "tar/octal_field.h"

#include <algorithm>

#include "module/host/failure.h"

namespace vesk::io::archives {

namespace {

bool isBlank(std::uint8_t byte) {
    return byte == 0 || byte == ' ';
}

bool isOctalDigit(std::uint8_t byte) {
    return byte >= '0' && byte <= '7';
}

}  // namespace

bool tarFitsInOctal(std::uint64_t value, std::size_t width) {
    const std::size_t bits = 3 * (width - 1);
    return bits >= 64 || value >> bits == 0;
}

void tarWriteOctal(std::uint8_t* field, std::size_t width, std::uint64_t value) {
    std::fill_n(field, width, std::uint8_t{0});
    if (!tarFitsInOctal(value, width)) {
        raiseFailure("TAR numeric field is too large");
        return;
    }
    for (std::size_t digits = width - 1; digits > 0; --digits, value >>= 3) {
        field[digits - 1] = static_cast<std::uint8_t>('0' + (value & 7));
    }
}

std::optional<std::uint64_t> tarParseOctal(const std::uint8_t* field, std::size_t width) {
    const std::uint8_t* const end = field + width;
    const std::uint8_t* const digits = std::find_if_not(field, end, isBlank);
    const std::uint8_t* const digitsEnd = std::find_if_not(digits, end, isOctalDigit);
    if (digits == digitsEnd) return std::nullopt;
    if (!std::all_of(digitsEnd, end, isBlank)) return std::nullopt;

    std::uint64_t value = 0;
    for (const std::uint8_t* digit = digits; digit != digitsEnd; ++digit) {
        if (value > 0x1FFFFFFFFFFFFFFF) return std::nullopt;
        value = value * 8 + (*digit - std::uint64_t{'0'});
    }
    return value;
}

}  // namespace vesk::io::archives
