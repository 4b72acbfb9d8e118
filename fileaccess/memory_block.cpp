// SPDX-License-Identifier: MIT
// Blocks of memory: small ones from the C allocator, large ones from the system.
#include "fileaccess/memory_block.h"

#include <cstdlib>
#include <cstring>
#include <new>

#if __has_include(<sys/mman.h>)
#include <sys/mman.h>
#endif

namespace vesk::io::archives {

namespace {

// The guidelines ask for an owner that allocates and frees: these functions are that owner.
// NOLINTBEGIN(cppcoreguidelines-no-malloc, cppcoreguidelines-owning-memory)

void* growAllocated(void* block, std::size_t newSize) {
    // The C allocator may grow a block in place, where a container would copy it.
    void* const grown = std::realloc(block, newSize);
    if (grown == nullptr) throw std::bad_alloc();
    return grown;
}

void freeAllocated(void* block) noexcept {
    std::free(block);
}

// NOLINTEND(cppcoreguidelines-no-malloc, cppcoreguidelines-owning-memory)

}  // namespace

#if defined(MADV_HUGEPAGE) && defined(MREMAP_MAYMOVE)

namespace {

enum : std::size_t {
    largePageSize = 2 << 20,
    largeBlock = 1 << 20,
};

// Rounds up to whole large pages. Newer kernels place a mapping of such a size at the beginning of
// a large page, so that it keeps its large pages when it is moved to grow.
std::size_t mappingSize(std::size_t size) {
    return (size + largePageSize - 1) / largePageSize * largePageSize;
}

void* map(std::size_t size) {
    void* const mapping = mmap(nullptr, mappingSize(size), PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED) throw std::bad_alloc();
    madvise(mapping, mappingSize(size), MADV_HUGEPAGE);
    return mapping;
}

void* growMapping(void* mapping, std::size_t size, std::size_t newSize) {
    void* const grown = mremap(mapping, mappingSize(size), mappingSize(newSize), MREMAP_MAYMOVE);
    if (grown == MAP_FAILED) throw std::bad_alloc();
    return grown;
}

}  // namespace

void* growBlock(void* block, std::size_t size, std::size_t newSize) {
    if (newSize < largeBlock) return growAllocated(block, newSize);
    if (size >= largeBlock) return growMapping(block, size, newSize);

    void* const mapping = map(newSize);
    if (size > 0) std::memcpy(mapping, block, size);
    freeAllocated(block);
    return mapping;
}

void freeBlock(void* block, std::size_t size) noexcept {
    if (size < largeBlock) return freeAllocated(block);
    munmap(block, mappingSize(size));
}

#else

void* growBlock(void* block, std::size_t /*size*/, std::size_t newSize) {
    return growAllocated(block, newSize);
}

void freeBlock(void* block, std::size_t /*size*/) noexcept {
    freeAllocated(block);
}

#endif

}  // namespace vesk::io::archives
