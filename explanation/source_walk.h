// SPDX-License-Identifier: MIT
// Walks a source as the module does, to find where the module failed.
#pragma once

#include <cstdint>
#include <string>

namespace vesk::explanation {

/// Where a walk stopped.
struct StoppedWalk {
    /// The path at which it stopped; empty if the walk was completed.
    std::string path;
    /// The system's error number.
    int error = 0;
};

/// A file that the module would store.
struct SourceFile {
    std::string path;  ///< empty if there is none
    std::string name;  ///< in the archive
    std::uint64_t size = 0;
};

/// What a walk has found.
struct SourceWalk {
    StoppedWalk stopped;
    /// In the order of names: the first file that is too large, the first that is the kernel's and
    /// so has no size of its own, and the first whose name does not fit.
    SourceFile tooLarge;
    SourceFile kernels;
    SourceFile tooLong;
    /// How many names do not fit.
    std::uint64_t tooLongCount = 0;
    /// The size of the archive, in bytes.
    std::uint64_t archiveSize = 0;
};

/// Walks the source, a file or a directory. Opens no file.
SourceWalk walkSource(const std::string& source);

}  // namespace vesk::explanation
