// SPDX-License-Identifier: MIT
// TAR streams for tests, built at literal offsets (POSIX.1-1988 ustar), independently of the
// module's own description of the format.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace vesk::testing {

/// Returns `text` with `bytes` in place of what it contains from `offset` on.
inline std::string patched(std::string text, std::size_t offset, std::string_view bytes) {
    return text.replace(offset, bytes.size(), bytes);
}

/// Returns the sum of the 512 bytes of `block`, each as a `Byte`; the eight bytes of chksum count
/// as spaces.
template <typename Byte>
int tarSum(std::string_view block) {
    int sum = 8 * 32;
    for (std::size_t i = 0; i < 512; ++i) {
        if (i < 148 || i >= 156) sum += static_cast<Byte>(block[i]);
    }
    return sum;
}

/// Returns `block` with `sum` in its chksum field: six octal digits, NUL, space.
inline std::string withSum(std::string block, int sum) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%06o", static_cast<unsigned>(sum));
    return patched(std::move(block), 148, std::string(digits, 7) + ' ');
}

/// Returns `block` with the right chksum for its other bytes.
inline std::string sealed(std::string block) {
    const int sum = tarSum<unsigned char>(block);
    return withSum(std::move(block), sum);
}

/// Returns a valid header block for an entry called `name` with `size` bytes of data.
inline std::string tarHeader(std::string_view name, std::size_t size = 0, char typeflag = '0') {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%011zo", size);
    std::string block = patched(std::string(512, '\0'), 0, name.substr(0, 100));
    block = patched(std::move(block), 124, std::string_view(digits, 11));
    block[156] = typeflag;
    return sealed(patched(std::move(block), 257,
                          std::string_view("ustar\0"
                                           "00",
                                           8)));
}

/// Returns the NULs that fill up the last block of `size` bytes of data.
inline std::string tarPadding(std::size_t size) {
    return std::string((512 - size % 512) % 512, '\0');
}

/// Returns a whole entry: header, data and padding.
inline std::string tarEntry(std::string_view name, std::string_view data, char typeflag = '0') {
    return tarHeader(name, data.size(), typeflag).append(data) + tarPadding(data.size());
}

/// Returns one block of NULs, which ends an archive.
inline std::string tarEnd() {
    return std::string(512, '\0');
}

}  // namespace vesk::testing
