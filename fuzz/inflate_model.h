// SPDX-License-Identifier: MIT
// The judgement of zlib on raw DEFLATE data, and which results of the stand-in's inflater agree.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

namespace vesk::fuzzing {

/// The result of zlib for some DEFLATE data. `doubtful` means that zlib refuses a block's set of
/// codes since it is incomplete; a decoder may also accept the set and refuse only a code that is
/// not in it.
struct Inflated {
    enum class End { complete, truncated, invalid, doubtful } end;
    bool inBlockHeader;   ///< the data ended, or was found invalid, inside a block's header
    bool hopeless;        ///< the data ended inside a code, and whatever follows is invalid
    std::string content;  ///< the bytes that could be decoded
    std::size_t unused;   ///< bytes after the final block
};

/// Decodes `packed` with zlib.
Inflated inflateWithZlib(std::string_view packed);

/// Returns the messages with which such data may be refused when its declared size is
/// `declaredSize`; empty when it must be accepted.
std::set<std::string> refusalsOf(const Inflated& inflated, std::uint64_t declaredSize);

}  // namespace vesk::fuzzing
