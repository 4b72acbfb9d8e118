// SPDX-License-Identifier: MIT
// Unpacking into random sandboxes: whatever the spelling of the destination and whatever is there,
// exactly what the kernel finds at that path is replaced, and nothing else on the disk changes.
#include <gtest/gtest.h>

#include <cstdio>

#include "tests/sandbox/cases.h"
#include "tests/sandbox/sandbox.h"
#include "tests/sandbox/spelling.h"
#include "tests/sandbox/unpack_runner.h"

namespace vesk::testing {

namespace {

void runRandomCase(UnpackRunner& runner, std::uint64_t seed, const ActingUser& user) {
    static constexpr mode_t masks[] = {022, 022, 0, 077, 027};
    RandomSource random(seed);
    SandboxPlan plan = randomPlan(random, user, runner.top());
    UnpackCase unpackCase;
    unpackCase.archive = randomArchive(random);
    unpackCase.overwrite = random.chance(60);
    unpackCase.mask = random.oneOf(masks);

    std::string archive = runner.archivePath();
    if (random.chance(30)) {
        const std::string path = plannedRoot() + "/archive";
        plan.things.push_back({path, S_IFREG, 0644, user, unpackCase.archive.bytes});
        archive = runner.top() + "/" + path;
    } else {
        writeFile(archive, unpackCase.archive.bytes);
    }
    const Sandbox sandbox(runner.top(), plan);
    unpackCase.destination = randomSpelling(random, surroundingsOf(runner.top(), plan));
    runner.run(unpackCase, archive, user, titleOfCase(seed, plan));
}

void runCases(const ActingUser& user) {
    const std::uint64_t first = firstSeed();
    const std::uint64_t count = caseCount(2000);
    UnpackRunner runner;
    for (std::uint64_t seed = first; seed < first + count; ++seed)
        runRandomCase(runner, seed, user);
    std::printf(
        "user %ju unpacking, seeds %ju to %ju: %ju must succeed, %ju must fail; %ju did succeed\n",
        std::uintmax_t{user.uid}, first, first + count - 1, runner.certainSuccesses(),
        runner.certainFailures(), runner.successes());
    EXPECT_TRUE(runner.findings().empty()) << runner.findings().text();
    if (count < 100) return;
    EXPECT_GT(runner.certainSuccesses(), count / 8);
    EXPECT_GT(runner.certainFailures(), count / 8);
}

TEST(UnpackSandbox, AsThePresentUser) {
    runCases(presentUser());
}

TEST(UnpackSandbox, AsAnOrdinaryUser) {
    if (!presentUser().isRoot()) GTEST_SKIP() << "the present user is one";
    runCases(ordinaryUser);
}

}  // namespace

}  // namespace vesk::testing
