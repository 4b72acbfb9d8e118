// SPDX-License-Identifier: MIT
// The mutator of the target explain: changes a TAR stream and usually keeps its checksums right.
// Changes any other file anywhere.
#include <algorithm>

#include "fuzz/tar_mutation.h"

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned seed) {
    std::vector<std::uint8_t> bytes(data, data + size);
    const bool isGzip = size > 1 && data[0] == 0x1F && data[1] == 0x8B;
    if (isGzip) {
        vesk::fuzzing::mutateBytes(bytes, maxSize);
    } else {
        vesk::fuzzing::mutateTar(bytes, maxSize, seed);
    }
    std::copy(bytes.begin(), bytes.end(), data);
    return bytes.size();
}
