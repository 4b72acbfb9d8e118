// SPDX-License-Identifier: MIT
// The largest block that the test executable, or a library that it loads, asked operator new for.
#pragma once

#include <cstddef>

/// Forgets what was asked for so far.
void forgetAllocations();

/// The size in bytes of the largest block asked for since.
std::size_t largestAllocation();
