// SPDX-License-Identifier: MIT
// The records of a pax header (POSIX.1-2001).
#include "explanation/extended_header.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace vesk::explanation {

namespace {

/// Reads the digits at the front of `text`. Returns nothing if there are none or too many.
std::optional<std::uint64_t> numberAt(std::string_view text) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end == text.data()) return std::nullopt;
    return number;
}

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char character) { return static_cast<unsigned char>(character) < 0x80; });
}

bool isBeyond(std::string_view number, std::uint64_t largest) {
    const auto value = numberAt(number);
    return !value || *value > largest;
}

void take(ExtendedHeader& header, std::string_view key, std::string_view value) {
    const bool isOwner = key == "uid" || key == "gid";
    const bool isOwnersName = key == "uname" || key == "gname";
    // An empty value stands for the header's own field.
    if (key == "path" && !value.empty()) header.name = value;
    if (key == "size") header.size = numberAt(value);
    // Other programs interpret a name that is not ASCII by their locale.
    if (((key == "path" || isOwnersName) && !isAscii(value)) ||
        (isOwnersName && value.size() > longestOwnersName) ||
        (isOwner && isBeyond(value, largestOwner)) ||
        (key == "mtime" && isBeyond(value, largestTime)) || key.starts_with("GNU.sparse.") ||
        key == "SCHILY.realsize")
        header.goesBeyondUstar = true;
    if (!header.keys.empty()) header.keys += ", ";
    header.keys += key;
}

}  // namespace

bool readPaxRecords(const std::string& records, ExtendedHeader& header) {
    std::string_view rest = records;
    while (!rest.empty()) {
        const std::uint64_t declared = numberAt(rest).value_or(0);
        const std::size_t space = rest.find(' ');
        if (declared > rest.size()) return false;
        const auto length = static_cast<std::size_t>(declared);
        if (space == std::string_view::npos || length < space + 2) return false;
        const std::string_view record = rest.substr(space + 1, length - space - 2);
        const std::size_t equals = record.find('=');
        if (equals == std::string_view::npos) return false;
        take(header, record.substr(0, equals), record.substr(equals + 1));
        rest.remove_prefix(length);
    }
    return true;
}

}  // namespace vesk::explanation
