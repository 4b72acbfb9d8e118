// SPDX-License-Identifier: MIT
// The many ways to write a path.
#pragma once

#include <map>
#include <string>

#include "tests/sandbox/random_source.h"
#include "tests/sandbox/sandbox_plan.h"

namespace vesk::testing {

/// What a path can lead through.
struct Surroundings {
    std::string top;  // where the sandbox is
    const SandboxPlan& plan;
    std::map<std::string, std::string> links;  // to directories: path to path, from the top
};

/// Finds out what the links of the sandbox at `top` lead to.
Surroundings surroundingsOf(const std::string& top, const SandboxPlan& plan);

/// Returns a path of something that is in the sandbox or could be: relative or absolute, with
/// detours, doubled slashes, dots, through links; sometimes one that cannot be.
std::string randomSpelling(RandomSource& random, const Surroundings& around);

}  // namespace vesk::testing
