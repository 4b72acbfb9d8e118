// SPDX-License-Identifier: MIT
// The sets of codes in the header of a DEFLATE block (RFC 1951, 3.2.7).
#pragma once

#include <cstddef>
#include <string_view>

namespace vesk::fuzzing {

/// Tells whether a block with dynamic codes, whose first bit is `bit` of `packed`, has a set in
/// which more codes have a length than there can be: no decoder may take it.
bool hasOverfullCode(std::string_view packed, std::size_t bit);

}  // namespace vesk::fuzzing
