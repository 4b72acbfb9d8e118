// SPDX-License-Identifier: MIT
// Random cases: their number, the seed of the first one, and how they are judged.
//
// VESK_SANDBOX_SEED is the seed of the first case, by default 1; each further case has the next
// seed. VESK_SANDBOX_CASES is their number. A case depends on its own seed only, so it can be
// repeated with its seed and a count of 1.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
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

/// Runs the cases, `otherwise` of them where the environment does not say, and judges what the
/// runner has found. Enough cases to tell must both succeed and fail.
template <typename Runner>
void runCases(const char* doing, std::uint64_t otherwise,
              void (*runCase)(Runner& runner, std::uint64_t seed, const ActingUser& user),
              const ActingUser& user) {
    const std::uint64_t first = firstSeed();
    const std::uint64_t count = caseCount(otherwise);
    Runner runner;
    for (std::uint64_t seed = first; seed < first + count; ++seed)
        runCase(runner, seed, user);
    std::printf("user %ju %s, seeds %ju to %ju: %ju must succeed, %ju must fail; %ju did succeed\n",
                std::uintmax_t{user.uid}, doing, first, first + count - 1,
                runner.certainSuccesses(), runner.certainFailures(), runner.successes());
    EXPECT_TRUE(runner.findings().empty()) << runner.findings().text();
    if (count < 100) return;
    EXPECT_GT(runner.certainSuccesses(), count / 8);
    EXPECT_GT(runner.certainFailures(), count / 8);
}

}  // namespace vesk::testing
