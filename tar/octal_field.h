// SPDX-License-Identifier: MIT
// Reading and writing the octal numbers in a ustar header block (POSIX.1-1988).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace vesk::io::archives {

/// Tells whether `value` fits a numeric field of `width` bytes as written here: `width` - 1 octal
/// digits and one NUL.
bool tarFitsInOctal(std::uint64_t value, std::size_t width);

/// Writes `value` into the `width` bytes at `field` as `width` - 1 ASCII octal digits, padded with
/// zeros on the left, and one NUL. A value that does not fit leaves the field all NUL and raises
/// "TAR numeric field is too large"; callers ask Vesk_hasPendingError.
void tarWriteOctal(std::uint8_t* field, std::size_t width, std::uint64_t value);

/// Reads the number in the `width` bytes at `field`: any NULs and spaces, at least one octal digit,
/// then only NULs and spaces. Digits may fill the whole field. Returns nothing when the field holds
/// anything else or a number of more than 64 bits.
std::optional<std::uint64_t> tarParseOctal(const std::uint8_t* field, std::size_t width);

}  // namespace vesk::io::archives
