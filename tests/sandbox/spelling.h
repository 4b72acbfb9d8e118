// SPDX-License-Identifier: MIT
// The many spellings of a path.
#pragma once

#include <map>
#include <string>

#include "tests/sandbox/random_source.h"
#include "tests/sandbox/sandbox_plan.h"

namespace vesk::testing {

/// The links that a path can use.
struct Surroundings {
    std::string top;  // where the sandbox is
    const SandboxPlan& plan;
    std::map<std::string, std::string> links;  // to directories: path to path, from the top
};

/// Finds out where the links of the sandbox at `top` lead.
Surroundings surroundingsOf(const std::string& top, const SandboxPlan& plan);

/// Returns a path to something that exists in the sandbox, or could: relative or absolute, with
/// detours, doubled slashes, dots, through links; sometimes an impossible one.
std::string randomSpelling(RandomSource& random, const Surroundings& around);

}  // namespace vesk::testing
