// SPDX-License-Identifier: MIT
// The files that this process has open.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace vesk::testing {

/// Returns how many file descriptors are open; the one that the count itself takes is always in it.
inline std::ptrdiff_t openFileCount() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

}  // namespace vesk::testing
