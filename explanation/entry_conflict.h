// SPDX-License-Identifier: MIT
// Which entry of an archive could not be made.
#pragma once

#include <cstdint>
#include <string>

#include "explanation/byte_source.h"

namespace vesk::explanation {

/// What an archive asks of the place that it is unpacked to.
struct MadeEntries {
    /// The module's message for the first entry that others before it are in the way of; empty
    /// where there is none.
    std::string message;
    /// Which entry that is and what is in its way, in one line.
    std::string conflict;
    /// What the files take on a disk, in bytes.
    std::uint64_t room = 0;
    /// The largest file.
    std::uint64_t largest = 0;
    std::string largestWhere;
};

/// Reads all entries of the stream before its first trouble. Remembers their names, up to a
/// million.
MadeEntries readMadeEntries(ByteSource& stream);

}  // namespace vesk::explanation
