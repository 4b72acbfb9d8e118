// SPDX-License-Identifier: MIT
// A copy of the command line that everybody can run, and runs of it.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "tests/sandbox/acting_user.h"
#include "tests/support/temp_dir.h"

namespace vesk::testing {

struct ProgramEnd {
    int status;         // the exit status; 128 and more for a signal
    std::string error;  // what came on standard error
};

/// A copy of vesk-archive with its libraries: those of a build may be in a directory that only
/// their owner can enter.
class ProgramCopy {
public:
    ProgramCopy();

    /// Runs it with these words as `user` in the working directory, and waits for its end.
    ProgramEnd run(const std::vector<std::string>& words, const ActingUser& user,
                   mode_t mask) const;

private:
    TempDir directory_;
};

}  // namespace vesk::testing
