// SPDX-License-Identifier: MIT
// Large pages, where the system takes advice on them.
#include "fileaccess/large_pages.h"

#include <cstdint>
#include <limits>

#if __has_include(<sys/mman.h>)
#include <sys/mman.h>
#endif

namespace vesk::io::archives {

namespace {

enum : std::size_t {
    pageSize = 4096,
    largePageSize = 2 << 20,
    largeBlock = 1 << 20,
    allocatorMargin = 16,  // its own bytes before a block, and at most as many after it
};

}  // namespace

std::size_t largePageCapacity(std::size_t capacity) {
    if (capacity < largeBlock) return capacity;
    if (capacity > std::numeric_limits<std::size_t>::max() / 2 - largePageSize) return capacity;
    const std::size_t pages = (capacity + 2 * allocatorMargin + largePageSize - 1) / largePageSize;
    return pages * largePageSize - 2 * allocatorMargin;
}

void preferLargePages([[maybe_unused]] void* block, [[maybe_unused]] std::size_t size) {
#ifdef MADV_HUGEPAGE
    if (size < largeBlock) return;
    // The allocator's bytes are advised too: a mapping that is advised in part falls into pieces
    // and can no longer be moved in one go.
    const std::uintptr_t inPage =
        (reinterpret_cast<std::uintptr_t>(block) - allocatorMargin) % pageSize;
    const std::size_t before = inPage + allocatorMargin;
    madvise(static_cast<char*>(block) - before, before + size + allocatorMargin, MADV_HUGEPAGE);
#endif
}

}  // namespace vesk::io::archives
