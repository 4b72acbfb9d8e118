// SPDX-License-Identifier: MIT
// Numbers in sentences.
#pragma once

#include <cstdint>
#include <string>

namespace vesk::commandline {

/// Returns the number with its noun: "1 entry", "2 entries".
inline std::string counted(std::uint64_t number, const char* one, const char* many) {
    return std::to_string(number) + ' ' + (number == 1 ? one : many);
}

}  // namespace vesk::commandline
