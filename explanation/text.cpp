// SPDX-License-Identifier: MIT
// Names and numbers for sentences, and names for commands.
#include "explanation/text.h"

#include <array>
#include <cinttypes>
#include <cstdio>

namespace vesk::explanation {

std::string inQuotes(std::string_view name) {
    return "'" + std::string(name) + "'";
}

std::string shellWord(const std::string& path) {
    constexpr std::string_view plain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._/-+,@%";
    // A dash begins an option. Some programs take what precedes a colon for the name of a machine.
    const bool isMistakable = path.starts_with('-') || path.find(':') < path.find('/');
    std::string word = isMistakable ? "./" + path : path;
    if (!word.empty() && word.find_first_not_of(plain) == std::string::npos) return word;
    for (std::size_t at = word.find('\''); at != std::string::npos; at = word.find('\'', at + 4))
        word.replace(at, 1, "'\\''");
    return inQuotes(word);
}

std::string bytes(std::uint64_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

std::string hexadecimal(std::uint32_t number, int digits) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%0*" PRIx32, digits, number);
    return text.data();
}

}  // namespace vesk::explanation
