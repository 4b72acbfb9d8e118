// SPDX-License-Identifier: MIT
// What is checked of a runtime library: tables of promises, each with the trial that puts it to the
// test.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "hostcheck/runtime_library.h"

namespace vesk::hostcheck {

/// What a trial works with. It has a process of its own, so that neither a pending exception nor a
/// crash reaches the next one.
struct Trial {
    Runtime runtime;
    /// Fresh empty directories, on as many file systems; the first is the current directory.
    std::vector<std::filesystem::path> places;
};

/// Thrown by a trial when the library does other than promised; both texts are for the report.
struct Deviation {
    std::string expected;
    std::string came;
};

inline void expect(bool holds, const std::string& expected, const std::string& came) {
    if (!holds) throw Deviation{expected, came};
}

/// What the module relies on, or what it leaves to the runtime and users are better off with.
enum class Weight { requirement, advice };

struct Requirement {
    Weight weight = Weight::requirement;
    const char* function = nullptr;
    /// Reads on from the function's name.
    const char* promise = nullptr;
    void (*check)(const Trial& trial) = nullptr;
    /// Timeout in seconds.
    unsigned seconds = 20;
};

std::span<const Requirement> pendingRequirements();
std::span<const Requirement> pathRequirements();
std::span<const Requirement> stagingRequirements();
std::span<const Requirement> commitRequirements();
std::span<const Requirement> checksumRequirements();
std::span<const Requirement> inflateRequirements();

}  // namespace vesk::hostcheck
