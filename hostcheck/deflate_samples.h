// SPDX-License-Identifier: MIT
// Raw DEFLATE data (RFC 1951) with what it decodes to.
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

/// Small ones of one block each.
DeflateSample storedSample();
DeflateSample fixedSample();
DeflateSample dynamicSample();

/// Stored blocks as the module writes them: three full ones and a rest.
DeflateSample manyBlocksSample();

/// No content, in a stored and in a fixed block.
std::vector<DeflateSample> emptySamples();

/// Copies 258 bytes from the farthest place that the format can name, 32768 bytes back.
DeflateSample farthestCopySample();

/// All of the above.
std::vector<DeflateSample> allSamples();

/// A name and bytes that are no DEFLATE data.
struct InvalidSample {
    std::string name;
    std::string packed;
};

std::vector<InvalidSample> invalidSamples();

}  // namespace vesk::hostcheck
