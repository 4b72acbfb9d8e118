// SPDX-License-Identifier: MIT
// Large pages for large blocks: touching fresh memory page by page costs more than copying it.
//
// All of this is advice: what is in the blocks is the same where the system has no large pages, or
// where an assumption made about the allocator does not hold.
#pragma once

#include <cstddef>

namespace vesk::io::archives {

/// Returns `capacity`, in bytes, or for a large one the next capacity at which a block and the
/// allocator's bytes around it fill whole large pages: such a block begins at one, and keeps them
/// when it is moved to grow.
std::size_t largePageCapacity(std::size_t capacity);

/// Asks the system to back the `size` bytes at `block`, which come from the allocator, by large
/// pages. Small blocks are left alone.
///
/// The advice counts when memory is touched for the first time. What was touched before keeps the
/// pages that it has, unless the system joins them later in the background. A block that has grown
/// is advised as a whole all the same: its new end is untouched, and a mapping that is advised in
/// part falls into pieces.
void preferLargePages(void* block, std::size_t size);

}  // namespace vesk::io::archives
