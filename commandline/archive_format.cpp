// SPDX-License-Identifier: MIT
// Telling the archive formats apart, by name and by content.
#include "commandline/archive_format.h"

#include <array>
#include <fstream>
#include <system_error>

namespace vesk::commandline {

std::optional<ArchiveFormat> formatOfName(std::string_view archiveName) {
    if (archiveName.ends_with(".tar")) return ArchiveFormat::tar;
    if (archiveName.ends_with(".tgz") || archiveName.ends_with(".tar.gz")) {
        return ArchiveFormat::tgz;
    }
    return std::nullopt;
}

ArchiveFormat formatOfContents(const std::filesystem::path& archive) {
    // Opening a FIFO would wait for a writer, opening a device could set it going.
    std::error_code error;
    if (!std::filesystem::is_regular_file(archive, error)) return ArchiveFormat::tar;

    std::ifstream file(archive, std::ios::binary);
    std::array<char, 2> magic{};
    file.read(magic.data(), magic.size());
    const bool isGzip = magic[0] == '\x1f' && magic[1] == '\x8b';
    return isGzip ? ArchiveFormat::tgz : ArchiveFormat::tar;
}

}  // namespace vesk::commandline
