// SPDX-License-Identifier: MIT
// The largest block that the test executable, or a library that it loads, requested from operator
// new.
#pragma once

#include <cstddef>

/// Forgets all earlier requests.
void forgetAllocations();

/// Returns the size in bytes of the largest request since then.
std::size_t largestAllocation();
