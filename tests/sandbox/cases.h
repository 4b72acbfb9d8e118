// SPDX-License-Identifier: MIT
// How many random cases are run, and from which seed on.
//
// VESK_SANDBOX_SEED is the seed of the first case, each further one has the next; 1 where it is not
// set. VESK_SANDBOX_CASES says how many. A case depends on its own seed alone, so that one is run
// again by its seed and a count of 1.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

#include "tests/sandbox/sandbox_plan.h"
#include "tests/sandbox/snapshot.h"

namespace vesk::testing {

inline std::uint64_t numberFromEnvironment(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
}

inline std::uint64_t firstSeed() {
    return numberFromEnvironment("VESK_SANDBOX_SEED", 1);
}

inline std::uint64_t caseCount(std::uint64_t otherwise) {
    return numberFromEnvironment("VESK_SANDBOX_CASES", otherwise);
}

/// Says how a case is run again.
inline std::string titleOfCase(std::uint64_t seed, const SandboxPlan& plan) {
    return "VESK_SANDBOX_SEED=" + std::to_string(seed) + " VESK_SANDBOX_CASES=1, in " +
           visible(plan.workingDirectory);
}

}  // namespace vesk::testing
