// SPDX-License-Identifier: MIT
// What making an archive must do in a sandbox, told from the sandbox alone.
#pragma once

#include <string>

#include "tests/sandbox/acting_user.h"
#include "tests/sandbox/archive_reader.h"
#include "tests/sandbox/kernel_place.h"
#include "tests/sandbox/prediction.h"
#include "tests/sandbox/snapshot.h"
#include "tests/support/module_calls.h"

namespace vesk::testing {

/// One run.
struct MakeCase {
    std::string source;
    std::string archive;
    Container container = Container::tar;
    bool overwrite = false;
    mode_t mask = 022;
};

/// What was known before the run.
struct MakeScene {
    std::string top;  // where the sandbox is
    ActingUser user;
    KernelPlace source;
    KernelPlace archive;
    Snapshot before;
};

/// How the run must end, and which files the archive then holds.
struct MakePrediction {
    Prediction prediction;
    ArchivedFiles files;
    bool isWrongUsage = false;  // a failure that has the exit status 2
};

/// Asks the kernel about links in the source, as the present user, who is the scene's.
MakePrediction predictMake(const MakeCase& makeCase, const MakeScene& scene);

}  // namespace vesk::testing
