// SPDX-License-Identifier: MIT
// Reading a TAR stream: every header checked, files and directories made below a root.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

namespace vesk::io::archives {

/// Extracts `archive`, a whole TAR stream, below the directory `root`, up to the first block of 512
/// NULs; what follows that block is not looked at.
///
/// Makes directories and regular files only; modes, owners and times in the headers are ignored.
/// Returns true when the end marker was reached, with `errorText` untouched. Otherwise false, with
/// `errorText` replaced by the first problem met: "TAR archive has no end marker", "Invalid TAR
/// header checksum", "Unsafe TAR entry name", "Invalid TAR entry size", "Truncated TAR entry",
/// "Cannot create TAR directory", "Unsupported TAR entry type", "Cannot create TAR entry
/// directory", "Cannot write TAR entry", "TAR entry is too large for this platform", "Cannot
/// finalize TAR entry" or "Truncated TAR entry padding". What was extracted before it stays: the
/// caller removes `root`.
bool tarExtractArchiveBytes(std::span<const std::uint8_t> archive,
                            const std::filesystem::path& root, std::string& errorText);

}  // namespace vesk::io::archives
