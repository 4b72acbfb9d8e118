// SPDX-License-Identifier: MIT
// A planned tree on the disk, with the working directory inside.
#pragma once

#include <filesystem>

#include "tests/sandbox/sandbox_plan.h"

namespace vesk::testing {

/// Makes what `plan` says below `top`, which must not exist, and goes into its working directory;
/// leaves that and removes everything in the end. Owners are set where this process is root.
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
