// SPDX-License-Identifier: MIT
// Building the ustar header block of an entry, and computing the checksum of any header block.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "tar/ustar_header.h"

namespace vesk::io::archives {

/// Fills `block`, owned by the caller, with the header of a regular file of `size` bytes named
/// `entryName`. Every entry has mode 0644, and owner, group and time 0.
///
/// A name of more than 100 bytes is split at its rightmost "/" whose index is at most 155. Raises
/// "TAR entry name is too long" when there is no such slash or more than 100 bytes remain after it,
/// and "TAR numeric field is too large" when `size` is 8589934592 or more. Callers ask
/// Vesk_hasPendingError, and discard the block after a failure.
void tarBuildHeaderBlock(std::string_view entryName, std::uint64_t size,
                         std::span<std::uint8_t, tarBlockSize> block);

/// Returns the sum of the 512 unsigned bytes of `block`; the eight bytes of `chksum` count as
/// spaces.
std::uint32_t tarHeaderChecksum(std::span<const std::uint8_t, tarBlockSize> block);

}  // namespace vesk::io::archives
