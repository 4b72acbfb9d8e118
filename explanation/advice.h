// SPDX-License-Identifier: MIT
// What to do about an archive that is refused: the only place that knows the words and commands.
#pragma once

#include <string>
#include <vector>

#include "explanation/explanation.h"

namespace vesk::explanation {

/// What helps, from the least to the most trouble: an archive that needs two of them needs the
/// later.
enum class Remedy {
    nothing,
    /// It can be written in ustar format as it is.
    convert,
    /// It can be unpacked by another program and packed again here.
    repack,
    /// It can be unpacked by another program, but holds what no ustar archive of files can.
    unpackElsewhere,
    /// Nothing but what stands after the last file is missing.
    mend,
    fetchAgain,
    distrust,
};

/// Returns at most two lines that say what to do. The commands take names that nothing has yet.
std::vector<std::string> advice(Remedy remedy, const FailedCall& call);

/// Returns the commands that make a directory, which is not there yet, and have the system's tar
/// unpack the archive to it.
std::string unpackingElsewhere(const FailedCall& call);

/// Returns `archive` with `mark` before its ending, and another ending if one is given; with a
/// number as well where something has that name.
std::string freshArchive(const std::string& archive, const std::string& mark,
                         const std::string& ending = "");

}  // namespace vesk::explanation
