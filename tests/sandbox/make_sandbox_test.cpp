// SPDX-License-Identifier: MIT
// Making archives of random sources in random sandboxes. The archive is at its path and contains
// the source's files, and nothing else on the disk changes.
#include <gtest/gtest.h>

#include "tests/sandbox/cases.h"
#include "tests/sandbox/make_runner.h"
#include "tests/sandbox/sandbox.h"
#include "tests/sandbox/source_model.h"
#include "tests/sandbox/spelling.h"

namespace vesk::testing {

namespace {

/// Returns a source that can usually be archived, which few random ones can.
std::string randomSource(RandomSource& random, const Surroundings& around, const ActingUser& user) {
    const Snapshot snapshot = takeSnapshot(around.top);
    const bool isPicky = random.chance(75);
    std::string source = randomSpelling(random, around);
    for (int attempt = 0; isPicky && attempt < 12; ++attempt) {
        const ActingAs acting(user);
        const SourceFiles found =
            filesOfSource(source, findPlace(source), snapshot, around.top, user);
        if (found.ending == Ending::success && !found.files.empty()) break;
        source = randomSpelling(random, around);
    }
    return source;
}

/// Returns the source itself or something in it, but usually a new name.
std::string randomArchivePath(RandomSource& random, const Surroundings& around,
                              const std::string& source) {
    const std::size_t choice = random.below(100);
    if (choice < 8) return source;
    if (choice < 20 && !source.empty()) return source + "/" + randomName(random);
    std::string path = randomSpelling(random, around);
    for (int attempt = 0; choice < 70 && attempt < 6; ++attempt) {
        if (!findPlace(path).missing.empty()) break;
        path = randomSpelling(random, around);
    }
    return path;
}

void runRandomCase(MakeRunner& runner, std::uint64_t seed, const ActingUser& user) {
    static constexpr mode_t masks[] = {022, 022, 0, 077, 027};
    RandomSource random(seed);
    const SandboxPlan plan = randomPlan(random, user, runner.top());
    const Sandbox sandbox(runner.top(), plan);
    const Surroundings around = surroundingsOf(runner.top(), plan);
    MakeCase makeCase;
    makeCase.source = randomSource(random, around, user);
    makeCase.archive = randomArchivePath(random, around, makeCase.source);
    makeCase.container = random.chance(50) ? Container::tgz : Container::tar;
    makeCase.overwrite = random.chance(60);
    makeCase.mask = random.oneOf(masks);
    runner.run(makeCase, user, titleOfCase(seed, plan));
}

TEST(MakeSandbox, AsThePresentUser) {
    runCases("making", 300, runRandomCase, presentUser());
}

TEST(MakeSandbox, AsAnOrdinaryUser) {
    if (!presentUser().isRoot()) GTEST_SKIP() << "the present user is one";
    runCases("making", 300, runRandomCase, ordinaryUser);
}

}  // namespace

}  // namespace vesk::testing
