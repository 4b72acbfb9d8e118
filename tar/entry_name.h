// SPDX-License-Identifier: MIT
// The name of an entry during extraction: reading it from the header, and judging whether it is
// safe.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "tar/ustar_header.h"

namespace vesk::io::archives {

/// Returns the entry name in `block`: `prefix` and "/" if `prefix` is not empty, whatever `magic`
/// holds; then `name`. Each field ends at its first NUL or at its full width. Trailing slashes are
/// removed.
std::string tarReadEntryName(std::span<const std::uint8_t, tarBlockSize> block);

/// Tells whether `entryName`, which has no trailing slash, stays below the directory to which it is
/// appended. A safe name is not empty, not absolute, and has no backslash, colon or NUL. Its normal
/// form is not "." and not rooted, and has no empty, "." or ".." element. Calls Vesk_runtimeFsPath
/// unless the text alone decides.
bool tarIsSafeEntryName(const std::string& entryName);

/// Returns the path, relative to the root, at which the entry with the safe name `entryName` is
/// made: the name, converted by Vesk_runtimeFsPath and normalised, as the native text of a path.
std::string tarTargetName(const std::string& entryName);

}  // namespace vesk::io::archives
