// SPDX-License-Identifier: MIT
// Walking a source as the module does, for what it did not get over.
#pragma once

#include <cstdint>
#include <string>

namespace vesk::explanation {

/// Where a walk stopped.
struct StoppedWalk {
    /// The path that was not got over; empty where the walk came to its end.
    std::string path;
    /// The system's number.
    int error = 0;
};

/// A file that the module would store.
struct SourceFile {
    std::string path;  ///< empty for none
    std::string name;  ///< in the archive
    std::uint64_t size = 0;
};

/// What a walk has met.
struct SourceWalk {
    StoppedWalk stopped;
    /// The first in the order of names that is too large to be read, and whose name does not fit.
    SourceFile tooLarge;
    SourceFile tooLong;
    /// What the archive takes, in bytes.
    std::uint64_t archiveSize = 0;
};

/// Walks the source, a file or a directory. Opens no file.
SourceWalk walkSource(const std::string& source);

}  // namespace vesk::explanation
