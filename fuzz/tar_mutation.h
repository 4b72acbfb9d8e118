// SPDX-License-Identifier: MIT
// Changes to TAR streams that leave them TAR streams; for the targets' own mutators.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace vesk::fuzzing {

/// Changes `archive`, to at most `maxSize` bytes: anywhere, or in one field of one header, or by
/// whole entries. Most of the time the headers then get the right checksums.
void mutateTar(std::vector<std::uint8_t>& archive, std::size_t maxSize, unsigned seed);

/// Changes any of `bytes`, to at most `maxSize` of them.
void mutateBytes(std::vector<std::uint8_t>& bytes, std::size_t maxSize);

}  // namespace vesk::fuzzing
