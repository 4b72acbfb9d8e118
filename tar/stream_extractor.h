// SPDX-License-Identifier: MIT
// Reading a TAR stream: checks every header, makes files and directories below a root.
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
/// Returns true, with `errorText` untouched, when it reached that block. Otherwise returns false,
/// with `errorText` replaced by the first failure: "TAR archive has no end marker", "Invalid TAR
/// header checksum", "Unsafe TAR entry name", "Invalid TAR entry size", "Truncated TAR entry",
/// "Cannot create TAR directory", "Unsupported TAR entry type", "Cannot create TAR entry
/// directory", "Cannot write TAR entry", "TAR entry is too large for this platform", "Cannot
/// finalize TAR entry" or "Truncated TAR entry padding". Entries that were extracted before the
/// failure stay: the caller removes `root`.
bool tarExtractArchiveBytes(std::span<const std::uint8_t> archive,
                            const std::filesystem::path& root, std::string& errorText);

}  // namespace vesk::io::archives
