// SPDX-License-Identifier: MIT
// What making an archive must do in a sandbox, predicted from the sandbox alone.
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

/// The state before the run.
struct MakeScene {
    std::string top;  // where the sandbox is
    ActingUser user;
    KernelPlace source;
    KernelPlace archive;
    Snapshot before;
};

/// How the run must end, and which files the archive then contains.
struct MakePrediction {
    Prediction prediction;
    ArchivedFiles files;
    bool isWrongUsage = false;  // a failure that has the exit status 2
};

/// Asks the kernel about links in the source, as the current user, who is that of the scene.
MakePrediction predictMake(const MakeCase& makeCase, const MakeScene& scene);

}  // namespace vesk::testing
