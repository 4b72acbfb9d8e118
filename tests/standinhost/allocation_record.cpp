// SPDX-License-Identifier: MIT
// An operator new for the test executable that remembers the largest request.
#include "tests/standinhost/allocation_record.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> largest{0};

void* allocate(std::size_t size) noexcept {
    std::size_t seen = largest.load();
    while (size > seen && !largest.compare_exchange_weak(seen, size)) {
    }
    return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

void forgetAllocations() {
    largest = 0;
}

std::size_t largestAllocation() {
    return largest;
}

void* operator new(std::size_t size) {
    if (void* block = allocate(size)) return block;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    std::free(block);
}
