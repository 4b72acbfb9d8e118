// SPDX-License-Identifier: MIT
// Entries that have something in common, of which a user is told.
#pragma once

#include <cstdint>
#include <string>

namespace vesk::commandline {

/// How many there are, and the name of the first of them in the archive's order.
struct Group {
    std::uint64_t count = 0;
    std::string first;
};

}  // namespace vesk::commandline
