// SPDX-License-Identifier: MIT
// What the headers of other formats say about the entry that follows them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vesk::explanation {

/// The largest numbers that every writer of ustar stores. Some use only six of the owner's seven
/// digits, and drop what does not fit with a mere warning.
constexpr std::uint64_t largestOwner = 0777777;
constexpr std::uint64_t largestTime = 077777777777;
/// In bytes. The field has 32, the last of which is NUL.
constexpr std::size_t longestOwnersName = 31;

/// What a pax or GNU header sets in place of the entry's own fields.
struct ExtendedHeader {
    std::optional<std::string> name;
    std::optional<std::uint64_t> size;
    /// It holds something that some writers of ustar cannot store: a large number, a time before
    /// 1970, an owner's long name, a name that is not ASCII, or a sparse file.
    bool goesBeyondUstar = false;
    /// The keys of its records, separated by commas.
    std::string keys;
};

/// Reads the records of a pax header, "LENGTH KEY=VALUE\n" each, into `header`, which is empty
/// before. Stops at the first malformed one and returns false.
bool readPaxRecords(const std::string& records, ExtendedHeader& header);

}  // namespace vesk::explanation
