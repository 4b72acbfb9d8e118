// SPDX-License-Identifier: MIT
// The names of what an extraction keeps beside its destination: a dot, the destination's name, a
// mark that says what it is for, and a random suffix.
#include "standinhost/staging_name.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <string_view>

namespace vesk::standin {
namespace {

constexpr std::string_view newMark = ".vesk-unpacking-new-";
constexpr std::string_view replacingMark = ".vesk-unpacking-replacing-";
constexpr std::string_view replacedMark = ".vesk-replaced-";
constexpr std::size_t suffixLength = 6;

/// The bytes of a file name, 255 at most, that remain beside dot, longest mark and suffix.
constexpr std::size_t longestName = 255 - 1 - replacingMark.size() - suffixLength;

/// Cuts `name` to the bytes that remain for it, and never within a UTF-8 character: some file
/// systems refuse half of one.
std::string_view shortened(std::string_view name) {
    if (name.size() <= longestName) return name;
    std::size_t end = longestName;
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80)
        --end;
    return name.substr(0, end);
}

std::string markedName(std::string_view destination, std::string_view mark,
                       std::string_view suffix) {
    return std::string(".").append(shortened(destination)).append(mark).append(suffix);
}

/// A name that is guessed does no harm: one that is taken is never used.
std::string randomSuffix() {
    constexpr std::string_view letters =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::array<unsigned char, suffixLength> bytes{};
    // Unlike a std::random_device, which may open a file, this works without a free descriptor.
    while (getrandom(bytes.data(), bytes.size(), 0) == -1 && errno == EINTR) {
    }
    std::string suffix;
    for (const unsigned char byte : bytes)
        suffix += letters[byte % letters.size()];
    return suffix;
}

}  // namespace

std::string stagingName(const std::string& destination, bool overwrite) {
    return markedName(destination, overwrite ? replacingMark : newMark, randomSuffix());
}

std::string replacedTreeName(const std::string& destination, const std::string& staging) {
    return markedName(destination, replacedMark, staging.substr(staging.size() - suffixLength));
}

}  // namespace vesk::standin
