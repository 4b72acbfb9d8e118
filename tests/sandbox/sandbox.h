// SPDX-License-Identifier: MIT
// A planned tree on the disk, with the working directory inside.
#pragma once

#include <filesystem>

#include "tests/sandbox/sandbox_plan.h"

namespace vesk::testing {

/// Makes the objects of `plan` below `top`, which must not exist, and changes to its working
/// directory. The destructor leaves that and removes everything. Owners are set where this process
/// is root.
class Sandbox {
public:
    Sandbox(std::filesystem::path top, const SandboxPlan& plan);
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

private:
    std::filesystem::path top_;
};

}  // namespace vesk::testing
