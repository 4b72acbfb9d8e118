// SPDX-License-Identifier: MIT
// The sets of codes in the header of a DEFLATE block (RFC 1951, 3.2.7).
#pragma once

#include <cstddef>
#include <string_view>

namespace vesk::fuzzing {

/// Tells whether a set of codes is overfull in the block with dynamic codes that begins at the bit
/// `bit` of `packed`: it has more codes of the given lengths than are possible. Every decoder must
/// refuse it.
bool hasOverfullCode(std::string_view packed, std::size_t bit);

}  // namespace vesk::fuzzing
