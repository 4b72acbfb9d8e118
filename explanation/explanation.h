// SPDX-License-Identifier: MIT
// Finds out afterwards why a call of the module failed, from what is on the disk.
//
// The module's messages are fixed texts without names. Here the archive, the source or the paths
// are read again by the module's own rules, to name what the message is about.
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
    /// The message of the exception.
    std::string message;
    /// The same call would be accepted with `--overwrite`.
    bool mayOverwrite = true;
};

/// Returns at most three lines, without line ends: where the fault is and what it is, then what to
/// do. Returns nothing if it finds no cause for exactly this message, such as when the files have
/// changed since. Changes nothing and never waits. Takes a few MiB of memory, and more only to
/// remember the names of an archive that contradicts itself. Throws only std::bad_alloc.
std::vector<std::string> explain(const FailedCall& call);

}  // namespace vesk::explanation
