// SPDX-License-Identifier: MIT
// Entries with a common property that the user is told about.
#pragma once

#include <cstdint>
#include <string>

namespace vesk::commandline {

/// The number of these entries, and the name of the first one in the archive's order.
struct Group {
    std::uint64_t count = 0;
    std::string first;
};

}  // namespace vesk::commandline
