// SPDX-License-Identifier: MIT
// Mutations of TAR streams that keep their structure; for the mutators of the targets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace vesk::fuzzing {

/// Changes `archive`, which may grow to `maxSize` bytes: anywhere, in one field of one header, or
/// by moving or removing whole entries. Usually gives the headers the right checksums afterwards.
void mutateTar(std::vector<std::uint8_t>& archive, std::size_t maxSize, unsigned seed);

/// Changes any of `bytes`, which may grow to `maxSize` bytes.
void mutateBytes(std::vector<std::uint8_t>& bytes, std::size_t maxSize);

}  // namespace vesk::fuzzing
