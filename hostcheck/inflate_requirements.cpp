// SPDX-License-Identifier: MIT
// The requirements for inflateRaw.
#include <array>
#include <sstream>
#include <string>

#include "hostcheck/deflate_samples.h"
#include "hostcheck/error_text.h"
#include "hostcheck/requirement.h"
#include "hostcheck/wording.h"

namespace vesk::hostcheck {

namespace {

struct Decoded {
    bool accepted;
    std::string bytes;
    std::uint32_t crc;
    std::string error;
};

Decoded decode(const Trial& trial, const std::string& packed, std::uint64_t declaredSize,
               std::string error = "") {
    std::istringstream in(packed, std::ios::in | std::ios::binary);
    std::ostringstream out(std::ios::out | std::ios::binary);
    std::uint32_t crc = 0;
    const bool accepted =
        trial.runtime.inflateRaw(in, packed.size(), declaredSize, out, crc, error);
    return {accepted, out.str(), crc, error};
}

std::string described(const Decoded& decoded) {
    if (!decoded.accepted) return "false with the text " + inQuotes(decoded.error);
    return "true with " + std::to_string(decoded.bytes.size()) + " bytes, " +
           inQuotes(decoded.bytes);
}

void expectContent(const Trial& trial, const DeflateSample& sample) {
    const Decoded decoded = decode(trial, sample.packed, sample.content.size());
    expect(decoded.accepted && decoded.bytes == sample.content,
           std::to_string(sample.content.size()) + " bytes, " + inQuotes(sample.content) +
               ", out of " + sample.name,
           described(decoded));
}

void expectRefusal(const Decoded& decoded, const std::string& what) {
    expect(!decoded.accepted, "false for " + what, described(decoded));
}

void decodesStoredBlocks(const Trial& trial) {
    expectContent(trial, storedSample());
    expectContent(trial, manyBlocksSample());
}

void decodesFixedBlocks(const Trial& trial) {
    expectContent(trial, fixedSample());
}

void decodesDynamicBlocks(const Trial& trial) {
    expectContent(trial, dynamicSample());
}

void decodesNothing(const Trial& trial) {
    for (const DeflateSample& sample : emptySamples())
        expectContent(trial, sample);
}

void copiesFromFarAway(const Trial& trial) {
    expectContent(trial, farthestCopySample());
}

void givesFinishedCrc(const Trial& trial) {
    for (const DeflateSample& sample : allSamples()) {
        const Decoded decoded = decode(trial, sample.packed, sample.content.size());
        if (decoded.accepted && decoded.bytes == sample.content) {
            expect(decoded.crc == sample.crc, hexadecimal(sample.crc) + " after " + sample.name,
                   hexadecimal(decoded.crc));
        }
    }
}

void leavesErrorAlone(const Trial& trial) {
    for (const DeflateSample& sample : allSamples()) {
        const Decoded decoded = decode(trial, sample.packed, sample.content.size(), earlierText);
        if (decoded.accepted) expectLeftAlone(decoded.error);
    }
}

void refusesDataThatEndsEarly(const Trial& trial) {
    for (const DeflateSample& sample : allSamples()) {
        for (const std::size_t length : {sample.packed.size() / 2, sample.packed.size() - 1}) {
            if (length == 0) continue;
            expectRefusal(decode(trial, sample.packed.substr(0, length), sample.content.size()),
                          "the first " + std::to_string(length) + " bytes of " + sample.name);
        }
    }
}

void refusesOtherData(const Trial& trial) {
    for (const InvalidSample& sample : invalidSamples())
        expectRefusal(decode(trial, sample.packed, 5), sample.name);
}

void replacesError(const Trial& trial) {
    for (const InvalidSample& sample : invalidSamples()) {
        const Decoded decoded = decode(trial, sample.packed, 5, earlierText);
        if (!decoded.accepted) expectReplaced(decoded.error);
    }
}

/// The runtime decides whether it compares the size at all.
void staysRightWithAnotherSize(const Trial& trial) {
    const DeflateSample sample = dynamicSample();
    const std::uint64_t size = sample.content.size();
    for (const std::uint64_t declared : {std::uint64_t{0}, size - 1, size + 1, size + 70000}) {
        const Decoded decoded = decode(trial, sample.packed, declared);
        const bool isRight = decoded.bytes == sample.content && decoded.crc == sample.crc;
        expect(!decoded.accepted || isRight,
               "false, or all " + std::to_string(size) + " bytes, with " +
                   std::to_string(declared) + " declared",
               described(decoded));
    }
}

void comparesTheSize(const Trial& trial) {
    const DeflateSample sample = dynamicSample();
    for (const std::size_t declared : {sample.content.size() - 1, sample.content.size() + 1}) {
        expectRefusal(decode(trial, sample.packed, declared),
                      std::to_string(sample.content.size()) + " bytes declared as " +
                          std::to_string(declared));
    }
}

void refusesWhatFollows(const Trial& trial) {
    const DeflateSample sample = dynamicSample();
    expectRefusal(decode(trial, sample.packed + "appended", sample.content.size()),
                  "8 bytes after the final block, which may be a second member");
}

constexpr Weight requirement = Weight::requirement;

constexpr std::array<Requirement, 13> requirements = {{
    {requirement, "inflateRaw", "decodes stored blocks", decodesStoredBlocks},
    {requirement, "inflateRaw", "decodes fixed blocks", decodesFixedBlocks},
    {requirement, "inflateRaw", "decodes dynamic blocks", decodesDynamicBlocks},
    {requirement, "inflateRaw", "decodes blocks without content", decodesNothing},
    {requirement, "inflateRaw", "copies from 32768 bytes back", copiesFromFarAway},
    {requirement, "inflateRaw", "gives the finished CRC-32 of its output", givesFinishedCrc},
    {requirement, "inflateRaw", "leaves the error text alone when it succeeds", leavesErrorAlone},
    {requirement, "inflateRaw", "refuses data that ends early", refusesDataThatEndsEarly},
    {requirement, "inflateRaw", "refuses what is no DEFLATE data", refusesOtherData},
    {requirement, "inflateRaw", "replaces the error text when it refuses", replacesError},
    {requirement, "inflateRaw", "refuses a wrong declared size or decodes all the same",
     staysRightWithAnotherSize},
    {Weight::advice, "inflateRaw", "refuses a wrong declared size", comparesTheSize},
    {Weight::advice, "inflateRaw", "refuses data after the final block", refusesWhatFollows},
}};

}  // namespace

std::span<const Requirement> inflateRequirements() {
    return requirements;
}

}  // namespace vesk::hostcheck
