// SPDX-License-Identifier: MIT
// Compares what a run that makes an archive did with what it must do.
#pragma once

#include <string>

#include "tests/sandbox/findings.h"
#include "tests/sandbox/make_model.h"
#include "tests/sandbox/program_copy.h"

namespace vesk::testing {

/// The result of a run.
struct MakeResult {
    ProgramEnd end;
    std::string place;  // the path, from the top, of the regular file that the archive's names now
    Snapshot after;
};

/// Adds every fault to `findings`, with `title` and the scene before the details.
void judgeMake(const MakeCase& makeCase, const MakeScene& scene, const MakePrediction& prediction,
               const MakeResult& result, const std::string& title, Findings& findings);

}  // namespace vesk::testing
