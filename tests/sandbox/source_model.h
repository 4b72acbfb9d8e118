// SPDX-License-Identifier: MIT
// The files of a source, predicted from a snapshot of it.
#pragma once

#include <string>

#include "tests/sandbox/acting_user.h"
#include "tests/sandbox/archive_reader.h"
#include "tests/sandbox/kernel_place.h"
#include "tests/sandbox/prediction.h"
#include "tests/sandbox/snapshot.h"

namespace vesk::testing {

struct SourceFiles {
    Ending ending = Ending::success;  // whether they can be archived
    std::string reason;
    bool isForWantOfSomething = false;  // a failure that making a directory could mend
    ArchivedFiles files;
    std::map<std::string, std::string> paths;  // of the same names: where their contents are
};

/// Finds the files of `spelling`, which leads to `place`, in the sandbox at `top`, for the current
/// user, who is `user`.
SourceFiles filesOfSource(const std::string& spelling, const KernelPlace& place,
                          const Snapshot& snapshot, const std::string& top, const ActingUser& user);

}  // namespace vesk::testing
