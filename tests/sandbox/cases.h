// SPDX-License-Identifier: MIT
// The number of random cases, and the seed of the first one.
//
// VESK_SANDBOX_SEED is the seed of the first case, by default 1; each further case has the next
// seed. VESK_SANDBOX_CASES is their number. A case depends on its own seed only, so it can be
// repeated with its seed and a count of 1.
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

/// Says how a case can be repeated.
inline std::string titleOfCase(std::uint64_t seed, const SandboxPlan& plan) {
    return "VESK_SANDBOX_SEED=" + std::to_string(seed) + " VESK_SANDBOX_CASES=1, in " +
           visible(plan.workingDirectory);
}

}  // namespace vesk::testing
