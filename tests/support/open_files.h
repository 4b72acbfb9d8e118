// SPDX-License-Identifier: MIT
// The files that this process has open.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace vesk::testing {

/// Returns the number of open file descriptors. The one that the count itself needs is always
/// included.
inline std::ptrdiff_t openFileCount() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

}  // namespace vesk::testing
