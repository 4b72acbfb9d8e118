// SPDX-License-Identifier: MIT
// The two archive formats, and how to tell them apart.
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace vesk::commandline {

enum class ArchiveFormat { tar, tgz };

/// Returns the format for the name of a new archive: tar for `.tar`, tgz for `.tgz` and `.tar.gz`,
/// in small or capital letters. Returns nothing for any other name.
std::optional<ArchiveFormat> formatOfName(std::string_view archiveName);

/// Returns the name without that ending. Returns the whole name if it has no such ending, or is
/// nothing but the ending.
std::string_view withoutFormatEnding(std::string_view archiveName);

/// Returns tgz for a regular file that begins like a gzip member, and tar for everything else. That
/// includes files that cannot be read: the module has the message for those. Never blocks.
ArchiveFormat formatOfContents(const std::filesystem::path& archive);

}  // namespace vesk::commandline
