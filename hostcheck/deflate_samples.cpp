// SPDX-License-Identifier: MIT
// The samples' bytes.
#include "hostcheck/deflate_samples.h"

#include <algorithm>
#include <string_view>

namespace vesk::hostcheck {

namespace {

using namespace std::literals;

constexpr std::string_view dynamicBytes =
    "\x15\x91\xC9\x01\x00\x21\x08\x03\xFF\x54\x23\x82\x1C\xFD\x37\xE6\xE4\xA5"
    "\x2B\x21\x4C\xD8\x63\x6E\x69\x6B\x5E\x76\x9F\x45\x59\xAE\x55\xDA\xB8\xF9"
    "\x39\xE6\x97\x33\x93\x2A\x8A\x45\x82\xE6\x3E\xCE\x59\x8B\x9B\xE8\xE9\x46"
    "\x97\xC9\x39\x69\xEF\xAE\xBD\x2E\x2B\x74\xC5\xD9\x7C\x37\xEF\x43\x7D\xD1"
    "\x6D\xC9\x97\x46\x3F\x38\xB8\x63\xE5\xF2\xF4\x8B\xB9\x87\xA6\xA4\xC6\x3D"
    "\xCD\x2D\x01\x94\x48\x1A\x22\x9F\x14\x03\x84\xF7\x88\xC2\x45\x7C\xCF\xDA"
    "\x8D\x93\x76\xF3\x38\x64\x74\xDC\xD2\xAD\xF5\x36\xAA\x2E\xBA\x50\x47\xE0"
    "\x2F\x68\xC8\x03\xBF\x48\x9C\x43\x33\xA2\x99\x16\xC3\xDC\x58\x08\xF2\xC0"
    "\x92\xA2\xCA\x80\x2F\x13\xD2\x2C\x98\xB3\x95\x56\x31\xDE\x21\xCF\x73\x05"
    "\x0E\x25\xA6\x62\x4F\x99\x5F\xEB\xB6\xBC\xD5\xA1\x4A\x97\xB3\x4D\x3A\xEA"
    "\xD1\x5B\x8D\x4B\x0D\x7E\x7D\x9E\x96\x43\x47\x33\xD3\xFA\x31\xB7\x1B\x82"
    "\x5E\x58\x46\xAB\x9F\x0B\xDF\xA4\xFE\x45\xC1\x3C\x03\xFD\x2A\x07\x0A\x6E"
    "\x50\xB2\x4D\x52\xEE\x90\xF7\x03"sv;

// "farther" as literals, 126 copies of 258 bytes and one of 253 from seven bytes back, which makes
// 32768 bytes, and the copy from their beginning.
constexpr std::string_view farthestCopyBytes =
    "\x4B\x4B\x2C\x2A\xC9\x48\x2D\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9"
    "\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A"
    "\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51"
    "\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5"
    "\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A"
    "\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46"
    "\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94"
    "\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9"
    "\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A"
    "\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51"
    "\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5"
    "\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x51\x6A"
    "\x94\x1A\xA5\x46\xA9\x51\x6A\x94\x1A\xA5\x46\xA9\x11\x4D\x8D\xDE\xFF\x0F"
    "\x00"sv;

std::string squares() {
    std::string text;
    for (int i = 0; i < 100; ++i)
        text += std::to_string(i * i) + "\n";
    return text;
}

std::string repeated(std::string_view text, std::size_t length) {
    std::string content;
    while (content.size() < length)
        content += text;
    content.resize(length);
    return content;
}

std::string littleEndian(std::size_t value) {
    return {static_cast<char>(value & 0xFFU), static_cast<char>(value >> 8U & 0xFFU)};
}

std::string inStoredBlocks(const std::string& content) {
    constexpr std::size_t full = 65535;
    std::string packed;
    for (std::size_t at = 0; at < content.size(); at += full) {
        const std::size_t length = std::min(full, content.size() - at);
        const bool isLast = at + length == content.size();
        packed += isLast ? '\x01' : '\x00';
        packed += littleEndian(length) + littleEndian(length ^ 0xFFFFU);
        packed.append(content, at, length);
    }
    return packed;
}

}  // namespace

DeflateSample storedSample() {
    return {"a stored block", "\x01\x05\x00\xFA\xFFhello"s, "hello", 0x3610A686};
}

DeflateSample fixedSample() {
    return {"a fixed block", "\x4B\x2C\x4A\xCE\xC8\x2C\x4B\x55\x48\x44\xA5\xB9\x00"s,
            "archive archive archive\n", 0x161A17C3};
}

DeflateSample dynamicSample() {
    return {"a dynamic block", std::string(dynamicBytes), squares(), 0x01AD59D4};
}

DeflateSample manyBlocksSample() {
    std::string content;
    for (unsigned i = 0; i < 200000; ++i)
        content += static_cast<char>(i * 7 % 251);
    return {"four stored blocks", inStoredBlocks(content), content, 0x20EEFA01};
}

std::vector<DeflateSample> emptySamples() {
    return {{"an empty stored block", "\x01\x00\x00\xFF\xFF"s, "", 0},
            {"an empty fixed block", "\x03\x00"s, "", 0}};
}

DeflateSample farthestCopySample() {
    const std::string front = repeated("farther", 32768);
    return {"a copy from 32768 bytes back", std::string(farthestCopyBytes),
            front + front.substr(0, 258), 0x4D59DF5D};
}

std::vector<DeflateSample> allSamples() {
    std::vector<DeflateSample> samples = {storedSample(), fixedSample(), dynamicSample(),
                                          manyBlocksSample(), farthestCopySample()};
    for (DeflateSample& sample : emptySamples())
        samples.push_back(std::move(sample));
    return samples;
}

std::vector<InvalidSample> invalidSamples() {
    return {{"a block of the reserved type", "\x07\x00"s},
            {"a stored block whose lengths contradict", "\x01\x05\x00\xFA\xFEhello"s},
            {"a copy from before the beginning", "\x4B\x04\x42\x00"s},
            {"the reserved length code 286", "\x4B\x1C\x03\x00"s},
            {"the reserved distance code 30", "\x4B\x04\x3E\x00"s},
            {"code lengths that name too many codes",
             "\x05\x00\x92\x04"
             "\x00\x00\x00\x00\x00\x00\x00\x00"s}};
}

}  // namespace vesk::hostcheck
