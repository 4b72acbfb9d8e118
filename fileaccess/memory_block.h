// SPDX-License-Identifier: MIT
// Blocks of memory for what is held whole: large ones are mappings of their own, in large pages
// where the system has them.
//
// Touching fresh memory page by page costs more than copying it. The advice to use large pages
// stays with an address range for good, and the allocator gives what is freed to others: so it is
// given only for mappings, which end with their block. The host's heap is as it was.
#pragma once

#include <cstddef>

namespace vesk::io::archives {

/// Returns a block of `newSize` bytes that begins with the bytes of `block`, which has `size` bytes
/// and is released; neither size is 0, but for a null `block`. What is new has any content.
///
/// The caller owns it and gives it to freeBlock with its size. Throws std::bad_alloc when there is
/// no memory; `block` is as it was then. No size exceeds what a pointer difference can tell.
void* growBlock(void* block, std::size_t size, std::size_t newSize);

/// Releases `block`, which has `size` bytes or is null.
void freeBlock(void* block, std::size_t size) noexcept;

/// Gives such blocks to containers of the standard library.
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
