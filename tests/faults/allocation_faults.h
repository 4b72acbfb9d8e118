// SPDX-License-Identifier: MIT
// The C allocator of a test executable, and so of the libraries that it loads. It counts
// allocations and fails on demand.
#pragma once

#include <cstddef>

#include "tests/faults/call_owner.h"

namespace vesk::testing {

/// Whether the allocations after the first failure fail, too.
enum class FaultReach { once, fromThenOn };

/// The allocations while faults were armed.
struct AllocationReport {
    std::size_t requests = 0;           ///< allocations that were asked for
    std::size_t failures = 0;           ///< those of them that failed
    CallOwner owner = CallOwner::none;  ///< of the first one that failed
    bool walking = false;  ///< the last one that failed was for std::filesystem to walk a directory
};

/// From now on, the allocation with the number `number`, counted from 1, fails; none fails with 0.
/// Works only while this process has a single thread.
void armAllocationFaults(std::size_t number, FaultReach reach);

/// Ends the effect of armAllocationFaults.
AllocationReport disarmAllocationFaults();

/// Returns the number of allocated blocks that are not freed yet.
std::size_t liveAllocations();

}  // namespace vesk::testing
