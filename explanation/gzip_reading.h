// SPDX-License-Identifier: MIT
// Reads a gzip member by the rules of the module and the stand-in host, in the same order.
#pragma once

#include <cstdint>
#include <string>

#include "explanation/byte_source.h"

namespace vesk::explanation {

/// What is wrong with a gzip file.
struct GzipReading {
    enum class Cause {
        nothing,
        damaged,
        plainTar,   ///< it begins like a TAR archive
        foreign,    ///< it begins like a format that bsdtar reads
        noGzip,     ///< it begins like something else
        members,    ///< another member follows
        padding,    ///< only NULs follow
        appendage,  ///< something else follows
        tooLarge,   ///< it decodes to more than the module accepts
    };

    Cause cause = Cause::nothing;
    /// The message of the module or the stand-in host; empty if they find nothing wrong.
    std::string message;
    /// Where the fault is and what it is, in one line.
    std::string finding;
    /// The offset of the first member's end, in bytes.
    std::uint64_t end = 0;
};

/// Reads the file. `name` stands for it in the findings.
GzipReading readGzip(FileSource& file, const std::string& name);

}  // namespace vesk::explanation
