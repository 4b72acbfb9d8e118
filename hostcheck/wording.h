// SPDX-License-Identifier: MIT
// Values in sentences.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vesk::hostcheck {

/// Returns `text` with everything but printable ASCII written as a backslash and three octal
/// digits, so that it neither drives a terminal nor breaks the line.
std::string printable(std::string_view text);

/// Returns the printable `text` between quotation marks, shortened when it is long.
std::string inQuotes(std::string_view text);

/// Returns `value` as 0x and eight hexadecimal digits.
std::string hexadecimal(std::uint32_t value);

}  // namespace vesk::hostcheck
