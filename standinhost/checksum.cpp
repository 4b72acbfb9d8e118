// SPDX-License-Identifier: MIT
// The CRC-32 accumulator.
#include <isa-l/crc.h>

#include "module/host/host_runtime.h"

std::uint32_t vesk::runtime::zip::crc32Update(std::uint32_t crc, const std::uint8_t* bytes,
                                              std::uint64_t count) {
    // The pointer may be null then, and the library does not promise not to read from it.
    if (count == 0) return crc;
    // The library inverts the register on entry and on exit; both are undone here.
    return ~crc32_gzip_refl(~crc, bytes, count);
}
