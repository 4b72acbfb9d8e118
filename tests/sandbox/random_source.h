// SPDX-License-Identifier: MIT
// Random choices that a seed repeats, with every compiler and library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace vesk::testing {

/// A SplitMix64 generator: neighbouring seeds give unrelated choices.
class RandomSource {
public:
    explicit RandomSource(std::uint64_t seed) : state_(seed * 0xD1342543DE82EF95U) {}

    /// Returns a number below `limit`, which is at least 1.
    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(next() % limit); }

    /// Returns true in `percent` of 100 calls.
    bool chance(unsigned percent) { return below(100) < percent; }

    /// Returns an element of `list`, which is not empty.
    template <typename List>
    const auto& oneOf(const List& list) {
        return *std::next(std::begin(list), static_cast<std::ptrdiff_t>(below(std::size(list))));
    }

private:
    std::uint64_t next() {
        std::uint64_t mixed = state_ += 0x9E3779B97F4A7C15U;
        mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9U;
        mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBU;
        return mixed ^ (mixed >> 31);
    }

    std::uint64_t state_;
};

}  // namespace vesk::testing
