// SPDX-License-Identifier: MIT
// zlib's opinion on raw DEFLATE data, and what the stand-in host's inflater may say to it.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

namespace vesk::fuzzing {

/// What zlib makes of a piece of DEFLATE data. `doubtful`: zlib refuses a block's set of codes
/// since it is not used up; a decoder may also take it and refuse only a code that is not in the
/// set.
struct Inflated {
    enum class End { complete, truncated, invalid, doubtful } end;
    bool inBlockHeader;   ///< the data ended, or was found invalid, inside a block's header
    bool hopeless;        ///< the data ended inside a code, and whatever follows is invalid
    std::string content;  ///< what could be decoded
    std::size_t unused;   ///< bytes after the final block
};

/// Decodes `packed` with zlib.
Inflated inflateWithZlib(std::string_view packed);

/// Returns the messages with which data of that kind may be refused when `declaredSize` bytes were
/// announced; empty when it must be accepted.
std::set<std::string> refusalsOf(const Inflated& inflated, std::uint64_t declaredSize);

}  // namespace vesk::fuzzing
