// SPDX-License-Identifier: MIT
// The mutator of the target extract_headers.
#include <algorithm>

#include "fuzz/tar_mutation.h"

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned seed) {
    std::vector<std::uint8_t> archive(data, data + size);
    vesk::fuzzing::mutateTar(archive, maxSize, seed);
    std::copy(archive.begin(), archive.end(), data);
    return archive.size();
}
