// SPDX-License-Identifier: MIT
// What headers of other formats say of the entry that follows them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vesk::explanation {

/// The largest numbers that every writer of ustar takes: some use six of the owner's seven digits
/// and leave out, with no more than a word, what does not fit.
constexpr std::uint64_t largestOwner = 0777777;
constexpr std::uint64_t largestTime = 077777777777;

/// What a pax header or a GNU one puts in the place of the entry's own fields.
struct ExtendedHeader {
    std::optional<std::string> name;
    std::optional<std::uint64_t> size;
    /// It says something that no ustar header can: a large number, a time before 1970, a sparse
    /// file.
    bool goesBeyondUstar = false;
    /// The keys of its records, with commas between them.
    std::string keys;
};

/// Reads the records of a pax header, "LENGTH KEY=VALUE\n" each; what is no record ends them.
ExtendedHeader readPaxRecords(const std::string& records);

}  // namespace vesk::explanation
