// SPDX-License-Identifier: MIT
// Names and numbers for sentences, and names for commands.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vesk::explanation {

/// Returns `name` between single quotes, for people.
std::string inQuotes(std::string_view name);

/// Returns `path` as a word for a shell command. It names the same file, whatever it begins with.
std::string shellWord(const std::string& path);

/// Returns `path` so that no program takes it for an option or for a place on another machine.
std::string unmistakable(const std::string& path);

/// Returns `line` with control characters as backslash and three octal digits. Names come from
/// archives, which must not write lines of their own.
std::string escaped(std::string_view line);

/// Returns "1 byte", "2 bytes".
std::string bytes(std::uint64_t count);

/// Returns "0x" and at least that many hexadecimal digits.
std::string hexadecimal(std::uint32_t number, int digits);

}  // namespace vesk::explanation
