// SPDX-License-Identifier: MIT
// Unpacking into random sandboxes: whatever the spelling of the destination and whatever is there,
// exactly what the kernel finds at that path is replaced, and nothing else on the disk changes.
#include <gtest/gtest.h>

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

TEST(UnpackSandbox, AsThePresentUser) {
    runCases("unpacking", 2000, runRandomCase, presentUser());
}

TEST(UnpackSandbox, AsAnOrdinaryUser) {
    if (!presentUser().isRoot()) GTEST_SKIP() << "the present user is one";
    runCases("unpacking", 2000, runRandomCase, ordinaryUser);
}

}  // namespace

}  // namespace vesk::testing
