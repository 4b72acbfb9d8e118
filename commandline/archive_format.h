// SPDX-License-Identifier: MIT
// The two archive formats, and how to tell them apart.
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace vesk::commandline {

enum class ArchiveFormat { tar, tgz };

/// Returns the format that a new archive's name asks for: tar for `.tar`, tgz for `.tgz` and
/// `.tar.gz`, in capital letters too; nothing for any other name.
std::optional<ArchiveFormat> formatOfName(std::string_view archiveName);

/// Returns the name without that ending; all of it where it has none or nothing else.
std::string_view withoutFormatEnding(std::string_view archiveName);

/// Returns tgz for a regular file that begins like a gzip member and tar for everything else,
/// files that cannot be read included: the module has the message for those. Never blocks.
ArchiveFormat formatOfContents(const std::filesystem::path& archive);

}  // namespace vesk::commandline
