// SPDX-License-Identifier: MIT
// What to do about an archive that is refused: the only place that knows the words and commands.
#pragma once

#include <string>
#include <vector>

#include "explanation/explanation.h"

namespace vesk::explanation {

/// What helps, in order of effort. An archive that needs two of these needs the later one.
enum class Remedy {
    nothing,
    /// It can be written in ustar format as it is.
    convert,
    /// It can be unpacked by another program and packed again here.
    repack,
    /// The same for an archive that goes on behind its end marker.
    repackJoined,
    /// The same for another format, which bsdtar reads.
    repackForeign,
    /// It can be unpacked by another program, but no ustar archive of files can hold its content.
    unpackElsewhere,
    /// Only what follows the data of the last file is missing.
    complete,
    fetchAgain,
    distrust,
};

/// Returns at most two lines that say what to do. The commands use names that are not taken yet.
/// `cause` is what calls for it, such as "entry 2, 'p/b'"; empty if that has just been told.
std::vector<std::string> advice(Remedy remedy, const FailedCall& call,
                                const std::string& cause = "");

/// Returns the commands that create a directory, under a name not taken yet, and unpack the archive
/// into it with `program`.
std::string unpackingElsewhere(const FailedCall& call, const std::string& program = "tar -xf");

/// Returns `archive` with `mark` before its file name ending. `ending` replaces that ending if it
/// is not empty. If the name is taken, a number is added.
std::string freshArchive(const std::string& archive, const std::string& mark,
                         const std::string& ending = "");

}  // namespace vesk::explanation
