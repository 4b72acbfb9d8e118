// SPDX-License-Identifier: MIT
// Reads a TAR stream by the module's rules, in their order, and on beyond the first fault.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "explanation/advice.h"
#include "explanation/byte_source.h"

namespace vesk::explanation {

/// What is wrong with a stream.
struct TarReading {
    /// The module's message; empty if it finds nothing wrong with the stream.
    std::string message;
    /// Where the fault is and what it is, in one line.
    std::string finding;
    /// What helps. Later entries are taken into account, too.
    Remedy remedy = Remedy::nothing;
    /// The first entry that calls for this remedy, such as "entry 2, 'p/b'"; empty if it is the one
    /// in the finding.
    std::string cause;
    /// Entries follow an end marker.
    bool isJoined = false;
};

/// A file or directory that the module creates.
struct TarEntry {
    std::uint64_t number = 0;  ///< from 1
    std::string name;          ///< safe, but not normalised
    bool isDirectory = false;
    std::uint64_t size = 0;
};

using TarVisitor = std::function<void(const TarEntry&)>;

/// Reads the stream to its end and skips the entries' data. `subject` stands for the stream in the
/// findings. Calls `visit`, if there is one, for every entry before the first fault.
TarReading readTar(ByteSource& stream, const std::string& subject, const TarVisitor& visit = {});

/// The same, but reads on behind end markers, as for archives that were put one behind the other.
TarReading readJoinedTars(ByteSource& stream);

}  // namespace vesk::explanation
