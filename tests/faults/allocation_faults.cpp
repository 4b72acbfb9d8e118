// SPDX-License-Identifier: MIT
// The wrappers around the C allocator. They see every allocation, since operator new of the
// standard library calls malloc.
#include "tests/faults/allocation_faults.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "tests/faults/call_owner.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace vesk::testing {

namespace {

struct Injection {
    bool armed = false;
    bool busy = false;  // looking for the owner, which may itself allocate
    std::size_t failing = 0;
    FaultReach reach = FaultReach::once;
    AllocationReport report;
};

Injection injection;
std::atomic<std::size_t> liveBlocks = 0;

void noteFailure(AllocationReport& report) {
    injection.busy = true;
    if (report.failures++ == 0) report.owner = callOwner();
    report.walking = isCalledBy("recursive_directory_iterator") || isCalledBy("remove_all");
    injection.busy = false;
}

bool isToFail() {
    if (!injection.armed || injection.busy) return false;
    AllocationReport& report = injection.report;
    const std::size_t number = ++report.requests;
    const bool reached = injection.failing != 0 && number >= injection.failing;
    if (!reached || (number > injection.failing && injection.reach == FaultReach::once)) {
        return false;
    }
    noteFailure(report);
    errno = ENOMEM;
    return true;
}

void* noteAllocated(void* block) {
    if (block != nullptr) ++liveBlocks;
    return block;
}

}  // namespace

void armAllocationFaults(std::size_t number, FaultReach reach) {
    injection = {true, false, number, reach, {}};
}

AllocationReport disarmAllocationFaults() {
    injection.armed = false;
    return injection.report;
}

std::size_t liveAllocations() {
    return liveBlocks;
}

}  // namespace vesk::testing

using namespace vesk::testing;

extern "C" {

void* malloc(std::size_t size) noexcept {
    return isToFail() ? nullptr : noteAllocated(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    return isToFail() ? nullptr : noteAllocated(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size) noexcept {
    if (isToFail()) return nullptr;
    void* const moved = __libc_realloc(block, size);
    // With a size of 0 the block has been freed and nothing is returned.
    if (block != nullptr && (moved != nullptr || size == 0)) --liveBlocks;
    return noteAllocated(moved);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return isToFail() ? nullptr : noteAllocated(__libc_memalign(alignment, size));
}

void* memalign(std::size_t alignment, std::size_t size) noexcept {
    return aligned_alloc(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept {
    *block = aligned_alloc(alignment, size);
    return *block == nullptr ? ENOMEM : 0;
}

void free(void* block) noexcept {
    if (block != nullptr) --liveBlocks;
    __libc_free(block);
}

}  // extern "C"
