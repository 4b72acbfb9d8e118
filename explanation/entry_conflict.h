// SPDX-License-Identifier: MIT
// Finds which entry of an archive could not be created.
#pragma once

#include <cstdint>
#include <string>

#include "explanation/byte_source.h"

namespace vesk::explanation {

/// What an archive needs where it is unpacked.
struct MadeEntries {
    /// The module's message for the first entry that an earlier one blocks; empty if there is none.
    std::string message;
    /// That entry and what blocks it, in one line.
    std::string conflict;
    /// The disk space that the files take, in bytes.
    std::uint64_t room = 0;
    /// The number of files and directories.
    std::uint64_t count = 0;
    /// The size of the largest file, in bytes.
    std::uint64_t largest = 0;
    std::string largestWhere;
};

/// Reads the entries of the stream up to the first fault. Remembers up to a million of their names.
MadeEntries readMadeEntries(ByteSource& stream);

}  // namespace vesk::explanation
