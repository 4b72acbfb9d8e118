// SPDX-License-Identifier: MIT
// Telling the archive formats apart, by name and by content.
#include "commandline/archive_format.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <system_error>

namespace vesk::commandline {

namespace {

struct Ending {
    std::string_view text;
    ArchiveFormat format;
};

constexpr std::array<Ending, 3> endings{
    {{".tar", ArchiveFormat::tar}, {".tgz", ArchiveFormat::tgz}, {".tar.gz", ArchiveFormat::tgz}}};

/// ASCII only, whatever the locale.
bool isSameLetter(char left, char right) {
    const auto lowered = [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    };
    return lowered(left) == lowered(right);
}

const Ending* endingOf(std::string_view name) {
    const auto* const found =
        std::find_if(endings.begin(), endings.end(), [&](const Ending& ending) {
            return name.size() >= ending.text.size() &&
                   std::equal(ending.text.rbegin(), ending.text.rend(), name.rbegin(),
                              isSameLetter);
        });
    return found == endings.end() ? nullptr : found;
}

}  // namespace

std::optional<ArchiveFormat> formatOfName(std::string_view archiveName) {
    const Ending* const ending = endingOf(archiveName);
    return ending == nullptr ? std::nullopt : std::optional(ending->format);
}

std::string_view withoutFormatEnding(std::string_view archiveName) {
    const Ending* const ending = endingOf(archiveName);
    const bool isAll = ending == nullptr || ending->text.size() == archiveName.size();
    return isAll ? archiveName : archiveName.substr(0, archiveName.size() - ending->text.size());
}

ArchiveFormat formatOfContents(const std::filesystem::path& archive) {
    // Opening a FIFO would wait for a writer. Opening a device could start it.
    std::error_code error;
    if (!std::filesystem::is_regular_file(archive, error)) return ArchiveFormat::tar;

    std::ifstream file(archive, std::ios::binary);
    std::array<char, 2> magic{};
    file.read(magic.data(), magic.size());
    const bool isGzip = magic[0] == '\x1f' && magic[1] == '\x8b';
    return isGzip ? ArchiveFormat::tgz : ArchiveFormat::tar;
}

}  // namespace vesk::commandline
