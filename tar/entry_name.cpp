// SPDX-License-Identifier: MIT
// The name of an entry during extraction.
#include "tar/entry_name.h"

#include <algorithm>
#include <filesystem>
#include <string_view>

#include "module/host/host_runtime.h"

namespace vesk::io::archives {

namespace {

template <typename Field>
std::string readText(std::span<const std::uint8_t, tarBlockSize> block) {
    const std::uint8_t* const begin = Field::in(block.data());
    return std::string(begin, std::find(begin, begin + Field::width, 0));
}

// Splits the text itself: the path iterators of libc++ end the process when memory runs out.
bool isEveryElementSafe(std::string_view path) {
    while (true) {
        const std::size_t length = std::min(path.find('/'), path.size());
        const std::string_view element = path.substr(0, length);
        if (element.empty() || element == "." || element == "..") return false;
        if (length == path.size()) return true;
        path.remove_prefix(length + 1);
    }
}

}  // namespace

std::string tarReadEntryName(std::span<const std::uint8_t, tarBlockSize> block) {
    std::string entryName = readText<TarPrefix>(block);
    if (!entryName.empty()) entryName += '/';
    entryName += readText<TarName>(block);
    while (entryName.ends_with('/'))
        entryName.pop_back();
    return entryName;
}

bool tarIsSafeEntryName(const std::string& entryName) {
    if (entryName.empty() || entryName.front() == '/') return false;
    if (entryName.find('\\') != std::string::npos) return false;
    if (entryName.find(':') != std::string::npos) return false;
    // Unreachable: both header fields end at their first NUL. The test makes sure that the name
    // judged here is the whole name that is converted below.
    if (entryName.find('\0') != std::string::npos) return false;

    const std::filesystem::path path = Vesk_runtimeFsPath(entryName.c_str());
    if (isEveryElementSafe(path.native())) return true;
    // Normalisation leaves a ".." only at the beginning of a relative path, where it leads outside.
    const std::filesystem::path normal = path.lexically_normal();
    if (normal == "." || normal.has_root_path()) return false;
    return isEveryElementSafe(normal.native());
}

std::string tarTargetName(const std::string& entryName) {
    const std::filesystem::path path = Vesk_runtimeFsPath(entryName.c_str());
    // A path whose elements are all safe is in its normal form already. Nearly every name is.
    return isEveryElementSafe(path.native()) ? path.native() : path.lexically_normal().native();
}

}  // namespace vesk::io::archives
