// SPDX-License-Identifier: MIT
// The requirements for a runtime library: tables of promises, each with the trial that tests it.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "hostcheck/runtime_library.h"

namespace vesk::hostcheck {

/// The environment of a trial. Each trial has its own process, so that neither a pending exception
/// nor a crash affects the next one.
struct Trial {
    Runtime runtime;
    /// New empty directories, each on another file system; the first is the current directory.
    std::vector<std::filesystem::path> places;
};

/// Thrown by a trial when the library breaks the promise; both texts are for the report.
struct Deviation {
    std::string expected;
    std::string came;
};

inline void expect(bool holds, const std::string& expected, const std::string& came) {
    if (!holds) throw Deviation{expected, came};
}

/// A requirement is what the module relies on. Advice is what the module does not need, but users
/// benefit from.
enum class Weight { requirement, advice };

struct Requirement {
    Weight weight = Weight::requirement;
    const char* function = nullptr;
    /// The predicate of a sentence that begins with the function's name.
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
