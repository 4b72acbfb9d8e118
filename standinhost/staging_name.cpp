// SPDX-License-Identifier: MIT
// The names of what an extraction keeps beside its destination: .NAME MARK SUFFIX, where NAME is
// the destination's, MARK says what it is for and SUFFIX is what mkdtemp made unique.
#include "standinhost/staging_name.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace vesk::standin {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view newMark = ".vesk-unpacking-new-";
constexpr std::string_view replacingMark = ".vesk-unpacking-replacing-";
constexpr std::string_view replacedMark = ".vesk-replaced-";
constexpr std::string_view permissionsMark = ".vesk-permissions-";
constexpr std::string_view pattern = "XXXXXX";

/// What is left of the 255 bytes of a file name after the dot, the longest mark and the suffix.
constexpr std::size_t longestName = 255 - 1 - replacingMark.size() - pattern.size();

/// Cuts `name` to the bytes that a marked name has room for, between two UTF-8 characters: some
/// file systems refuse half of one.
std::string_view shortened(std::string_view name) {
    if (name.size() <= longestName) return name;
    std::size_t end = longestName;
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80)
        --end;
    return name.substr(0, end);
}

fs::path siblingPath(const fs::path& target, std::string_view mark, std::string_view suffix) {
    std::string name = ".";
    name.append(shortened(target.filename().native())).append(mark).append(suffix);
    return target.parent_path() / name;
}

/// The part of the staging directory's name that mkdtemp made unique.
std::string uniqueSuffix(const fs::path& staging) {
    const std::string name = staging.filename().native();
    return name.substr(name.size() - std::min(name.size(), pattern.size()));
}

}  // namespace

fs::path stagingPattern(const fs::path& target, bool overwrite) {
    return siblingPath(target, overwrite ? replacingMark : newMark, pattern);
}

bool stagingReplaces(const fs::path& staging) {
    const std::string name = staging.filename().native();
    // Looked for at its place only: the destination's own name may contain such a mark too.
    return name.ends_with(std::string(replacingMark) + uniqueSuffix(staging));
}

fs::path replacedTreePath(const fs::path& target, const fs::path& staging) {
    return siblingPath(target, replacedMark, uniqueSuffix(staging));
}

fs::path permissionProbePath(const fs::path& target, const fs::path& staging) {
    return siblingPath(target, permissionsMark, uniqueSuffix(staging));
}

}  // namespace vesk::standin
