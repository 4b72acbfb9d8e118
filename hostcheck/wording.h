// SPDX-License-Identifier: MIT
// Writing values in the sentences of the report.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vesk::hostcheck {

/// Returns `text` with every byte but printable ASCII written as a backslash and three octal
/// digits, so that it cannot control a terminal or break the line.
std::string printable(std::string_view text);

/// Returns the printable form of `text` in quotation marks, shortened when it is long.
std::string inQuotes(std::string_view text);

/// Returns `value` as 0x and eight hexadecimal digits.
std::string hexadecimal(std::uint32_t value);

}  // namespace vesk::hostcheck
