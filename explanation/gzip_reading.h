// SPDX-License-Identifier: MIT
// Reading a gzip member by the module's and the stand-in host's rules, in their order.
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
        plainTar,     ///< it begins as a TAR archive does
        convertible,  ///< it begins as a format that can be converted does
        noGzip,       ///< it begins as something else does
        members,      ///< another member follows
        padding,      ///< nothing but NULs follow
        appendage,    ///< something else follows
        tooLarge,     ///< it decodes to more than can be taken
    };

    Cause cause = Cause::nothing;
    /// The message of the module or the host; empty where they find nothing wrong.
    std::string message;
    /// Where that is and what it is, in one line.
    std::string finding;
    /// Where the first member ends.
    std::uint64_t end = 0;
};

/// Reads the file. `name` is what it is called in a sentence.
GzipReading readGzip(FileSource& file, const std::string& name);

}  // namespace vesk::explanation
