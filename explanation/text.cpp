// SPDX-License-Identifier: MIT
// Names and numbers for sentences, and names for commands.
#include "explanation/text.h"

#include <array>
#include <cinttypes>
#include <cstdio>

namespace vesk::explanation {

namespace {

std::string octal(unsigned char byte) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "\\%03o", static_cast<unsigned>(byte));
    return text.data();
}

bool isControl(unsigned char byte) {
    return byte < 0x20 || byte == 0x7F;
}

/// Returns `word` as it stands between the quotes of $'...'.
std::string forAnsiQuotes(std::string_view word) {
    std::string text;
    for (const char character : word) {
        const bool isSpecial = isControl(static_cast<unsigned char>(character)) ||
                               character == '\'' || character == '\\';
        text +=
            isSpecial ? octal(static_cast<unsigned char>(character)) : std::string(1, character);
    }
    return text;
}

}  // namespace

std::string inQuotes(std::string_view name) {
    return "'" + std::string(name) + "'";
}

std::string escaped(std::string_view line) {
    std::string text;
    for (const char character : line) {
        const auto byte = static_cast<unsigned char>(character);
        text += isControl(byte) ? octal(byte) : std::string(1, character);
    }
    return text;
}

std::string unmistakable(const std::string& path) {
    // A dash begins an option, and what stands before a colon is a machine's name to some programs.
    const bool isMistakable = path.starts_with('-') || path.find(':') < path.find('/');
    return isMistakable ? "./" + path : path;
}

std::string shellWord(const std::string& path) {
    constexpr std::string_view plain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._/-+,@%";
    std::string word = unmistakable(path);
    if (!word.empty() && word.find_first_not_of(plain) == std::string::npos) return word;
    if (escaped(word) != word) return "$'" + forAnsiQuotes(word) + "'";
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
