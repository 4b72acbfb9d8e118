// SPDX-License-Identifier: MIT
// The name of an entry that is being extracted: reading it from the header, and judging it.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "tar/ustar_header.h"

namespace vesk::io::archives {

/// Returns the entry name in `block`: `prefix` and "/" if `prefix` is not empty (whatever `magic`
/// holds), then `name`, each up to its first NUL or its full width, without trailing slashes.
std::string tarReadEntryName(std::span<const std::uint8_t, tarBlockSize> block);

/// Tells whether `entryName`, free of trailing slashes, names something below the directory that it
/// is appended to: not empty, not absolute, no backslash, colon or NUL, and once normalised neither
/// ".", nor rooted, nor with an empty, "." or ".." element. Calls Vesk_runtimeFsPath unless the
/// text alone decides.
bool tarIsSafeEntryName(const std::string& entryName);

/// Returns where the entry with the safe name `entryName` goes below the root: the name, converted
/// by Vesk_runtimeFsPath and normalised, as a path's native text.
std::string tarTargetName(const std::string& entryName);

}  // namespace vesk::io::archives
