// SPDX-License-Identifier: MIT
// TAR streams exactly as the module writes them, built from literals.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

#include "tests/support/tar_bytes.h"

namespace vesk::testing {

/// Returns the header block of a file called `name`, of at most 100 bytes, with `size` bytes.
inline std::string archivedHeader(std::string_view name, std::size_t size) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%011zo", size);
    std::string block = std::string(name) + std::string(100 - name.size(), '\0');
    block += std::string(
        "0000644\0"
        "0000000\0"
        "0000000\0",
        24);
    block += std::string(digits, 12) + std::string("00000000000\0", 12);
    block += std::string(8, ' ') + "0" + std::string(100, '\0');
    block += std::string(
                 "ustar\0"
                 "00",
                 8) +
             std::string(247, '\0');
    return sealed(block);
}

/// Returns the whole entry: header block, data and padding.
inline std::string archivedEntry(std::string_view name, std::string_view data) {
    return archivedHeader(name, data.size()).append(data) + tarPadding(data.size());
}

/// Returns the two blocks after the last entry.
inline std::string archivedEnd() {
    return std::string(1024, '\0');
}

}  // namespace vesk::testing
