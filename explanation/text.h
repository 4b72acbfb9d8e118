// SPDX-License-Identifier: MIT
// Names and numbers in sentences, and names in commands.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vesk::explanation {

/// Returns `name` between single quotes, for people.
std::string inQuotes(std::string_view name);

/// Returns `path` as a word of a shell's command that names the same file, whatever it begins with.
std::string shellWord(const std::string& path);

/// Returns "1 byte", "2 bytes".
std::string bytes(std::uint64_t count);

/// Returns "0x" and as many hexadecimal digits, or more.
std::string hexadecimal(std::uint32_t number, int digits);

}  // namespace vesk::explanation
