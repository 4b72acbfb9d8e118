// SPDX-License-Identifier: MIT
// Why a call of the module failed: found afterwards, by looking at what lies on the disk.
//
// The module's messages are fixed texts without names. Here the archive, the source or the paths
// are read once more by the module's own rules, and what its message speaks of is named.
#pragma once

#include <string>
#include <vector>

namespace vesk::explanation {

/// A call of the module that raised an exception.
struct FailedCall {
    bool isMaking = false;
    /// The archive is a gzip member.
    bool isGzip = false;
    std::string archive;
    /// The source of a new archive or the destination of an unpacked one.
    std::string tree;
    /// The exception's.
    std::string message;
};

/// Returns at most three lines, without their ends: where the trouble is and what it is, then what
/// to do. Nothing where nothing is found that leads to this very message, as when the files have
/// changed since. Changes nothing, waits for nobody, and takes a few MiB of memory besides what it
/// takes to remember the names of an archive that contradicts itself. Throws std::bad_alloc alone.
std::vector<std::string> explain(const FailedCall& call);

}  // namespace vesk::explanation
