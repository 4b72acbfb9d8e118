// SPDX-License-Identifier: MIT
// Writing values in the sentences of the report.
#include "hostcheck/wording.h"

#include <array>
#include <cstdio>

namespace vesk::hostcheck {

namespace {

/// The number of bytes of a text that are shown at most.
constexpr std::size_t longestShown = 120;

std::string escaped(char byte) {
    std::array<char, 5> octal{};
    std::snprintf(octal.data(), octal.size(), "\\%03o", static_cast<unsigned char>(byte));
    return octal.data();
}

}  // namespace

std::string printable(std::string_view text) {
    std::string shown;
    for (const char byte : text) {
        const bool isPrintable = byte >= ' ' && byte <= '~';
        shown += isPrintable ? std::string(1, byte) : escaped(byte);
    }
    return shown;
}

std::string inQuotes(std::string_view text) {
    std::string shown = "\"";
    shown += printable(text.substr(0, longestShown));
    return shown + (text.size() > longestShown ? "...\"" : "\"");
}

std::string hexadecimal(std::uint32_t value) {
    std::array<char, 11> text{};
    std::snprintf(text.data(), text.size(), "0x%08x", static_cast<unsigned>(value));
    return text.data();
}

}  // namespace vesk::hostcheck
