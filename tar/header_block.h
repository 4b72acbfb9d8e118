// SPDX-License-Identifier: MIT
// A whole ustar header block: building the one of an entry, and the checksum of any.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "tar/ustar_header.h"

namespace vesk::io::archives {

/// Fills `block`, owned by the caller, with the header of a regular file of `size` bytes named
/// `entryName`; mode 0644, owner, group and time 0 for every entry.
///
/// A name of more than 100 bytes is split at its rightmost "/" whose index is at most 155. Raises
/// "TAR entry name is too long" when no such split leaves at most 100 bytes for `name`, and "TAR
/// numeric field is too large" for 8589934592 bytes or more; callers ask Vesk_hasPendingError and
/// discard the block.
void tarBuildHeaderBlock(std::string_view entryName, std::uint64_t size,
                         std::span<std::uint8_t, tarBlockSize> block);

/// Returns the sum of the 512 unsigned bytes of `block`, the eight of `chksum` taken as spaces.
std::uint32_t tarHeaderChecksum(std::span<const std::uint8_t, tarBlockSize> block);

}  // namespace vesk::io::archives
