// SPDX-License-Identifier: MIT
// Samples of raw DEFLATE data (RFC 1951) with their decoded content.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vesk::hostcheck {

struct DeflateSample {
    std::string name;
    std::string packed;
    std::string content;
    std::uint32_t crc;
};

/// Small samples of one block each.
DeflateSample storedSample();
DeflateSample fixedSample();
DeflateSample dynamicSample();

/// Stored blocks as the module writes them: three full ones and a shorter one.
DeflateSample manyBlocksSample();

/// No content, in a stored and in a fixed block.
std::vector<DeflateSample> emptySamples();

/// Copies 258 bytes from the largest distance of the format, 32768 bytes.
DeflateSample farthestCopySample();

/// All of the above.
std::vector<DeflateSample> allSamples();

/// Bytes that are no DEFLATE data, with a name for them.
struct InvalidSample {
    std::string name;
    std::string packed;
};

std::vector<InvalidSample> invalidSamples();

}  // namespace vesk::hostcheck
