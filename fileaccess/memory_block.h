// SPDX-License-Identifier: MIT
// Blocks of memory for whole files and streams. Each large block is a mapping of its own, in large
// pages where the system has them.
//
// The page faults of new memory cost more than copying as many bytes; large pages save most of the
// faults. The advice to use large pages stays with an address range until it is unmapped. So it is
// given only for these mappings, which are unmapped when their block is freed, and never for memory
// of the allocator: the host's heap is unchanged.
#pragma once

#include <cstddef>

namespace vesk::io::archives {

/// Returns a block of `newSize` bytes that begins with the `size` bytes of `block`, and releases
/// `block`. The content of the added bytes is unspecified.
///
/// `newSize` is at least `size`. `size` is 0 if `block` is null; otherwise neither size is 0. No
/// size exceeds the largest std::ptrdiff_t. The caller owns the block and passes it to freeBlock
/// with its size. Throws std::bad_alloc when there is no memory; `block` is then unchanged.
void* growBlock(void* block, std::size_t size, std::size_t newSize);

/// Releases `block`, which has `size` bytes or is null.
void freeBlock(void* block, std::size_t size) noexcept;

/// Allocates such blocks for containers of the standard library.
template <typename Element>
struct BlockAllocator {
    using value_type = Element;

    BlockAllocator() noexcept = default;
    template <typename Other>
    explicit BlockAllocator(const BlockAllocator<Other>& /*other*/) noexcept {}

    Element* allocate(std::size_t count) {
        return static_cast<Element*>(growBlock(nullptr, 0, count * sizeof(Element)));
    }

    void deallocate(Element* block, std::size_t count) noexcept {
        freeBlock(block, count * sizeof(Element));
    }

    bool operator==(const BlockAllocator& /*other*/) const noexcept { return true; }
};

}  // namespace vesk::io::archives
