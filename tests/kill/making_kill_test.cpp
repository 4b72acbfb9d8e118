// SPDX-License-Identifier: MIT
// vesk-archive is killed while it makes an archive: at every instant there is the old one, the new
// one, whole, or none where there was none before.
//
// VESK_KILL_MOMENTS says at how many moments, spread evenly over its running time, it is killed
// besides those before and after each of its system calls; 50 where it is not set.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <regex>
#include <set>

#include "tests/kill/traced_process.h"
#include "tests/support/memory_dir.h"
#include "tests/support/tree.h"

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

const std::string oldArchive = "the old archive";

/// What may be found at the archive's path.
enum class Found { nothing, oldWhole, newWhole, other };

struct MakingVariant {
    const char* name;
    bool oldExists;
    Exchange exchange;  ///< refused, too, is the renaming that replaces nothing
};

std::ostream& operator<<(std::ostream& out, const MakingVariant& variant) {
    return out << variant.name;
}

const MakingVariant makingVariants[] = {
    {"Replacing", true, Exchange::possible},
    {"New", false, Exchange::possible},
    {"NewByLinking", false, Exchange::refused},
};

class MakingKill : public ::testing::TestWithParam<MakingVariant> {
protected:
    /// Writes the source and finds out what its archive is.
    void makeSource(int files) {
        for (int number = 0; number < files; ++number)
            writeFile(root_ / "source" / std::to_string(number), std::string(3000, 'x'));
        ASSERT_EQ(
            run({VESK_ARCHIVE, "make", "--quiet", root_ / "source", root_ / "whole.tar"}).status,
            0);
        newArchive_ = readFile(root_ / "whole.tar");
    }

    std::vector<std::string> command() const {
        std::vector<std::string> words = {VESK_ARCHIVE, "make", "--quiet", root_ / "source",
                                          root_ / "work/a.tar"};
        if (GetParam().oldExists) words.push_back("--overwrite");
        return words;
    }

    void prepare() const {
        fs::remove_all(root_ / "work");
        fs::create_directory(root_ / "work");
        if (GetParam().oldExists) writeFile(root_ / "work/a.tar", oldArchive);
    }

    Found found() const {
        if (!fs::exists(root_ / "work/a.tar")) return Found::nothing;
        const std::string bytes = readFile(root_ / "work/a.tar");
        if (bytes == oldArchive) return Found::oldWhole;
        return bytes == newArchive_ ? Found::newWhole : Found::other;
    }

    std::set<std::string> leftovers() const {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(root_ / "work"))
            names.insert(entry.path().filename().native());
        names.erase("a.tar");
        return names;
    }

    void judge(const std::string& moment);

    void print() {
        std::printf("%d nothing, %d old archive, %d new archive; %d with leftovers\n",
                    seen_[Found::nothing], seen_[Found::oldWhole], seen_[Found::newWhole],
                    withLeftovers_);
    }

    const std::unique_ptr<TempDir> directory_ = makeMemoryDir();
    const TempDir& root_ = *directory_;
    std::string newArchive_;
    std::map<Found, int> seen_;
    int withLeftovers_ = 0;
};

/// Looks at what a killed run has left, and at the run after it.
void MakingKill::judge(const std::string& moment) {
    SCOPED_TRACE(moment);
    const Found state = found();
    const Found before = GetParam().oldExists ? Found::oldWhole : Found::nothing;
    EXPECT_TRUE(state == before || state == Found::newWhole) << static_cast<int>(state);
    ++seen_[state];

    const std::set<std::string> left = leftovers();
    EXPECT_LE(left.size(), 1U);
    const std::regex telling(R"(\.a\.tar\.vesk-making-[A-Za-z0-9]{6})");
    for (const std::string& name : left)
        EXPECT_TRUE(std::regex_match(name, telling)) << name;
    if (!left.empty()) ++withLeftovers_;

    std::vector<std::string> next = command();
    next.push_back("--overwrite");
    if (GetParam().oldExists) next.pop_back();
    EXPECT_EQ(run(next).status, 0);
    EXPECT_EQ(found(), Found::newWhole);
    EXPECT_EQ(leftovers(), left);
}

TEST_P(MakingKill, AtEverySystemCallLeavesAWholeArchiveOrNone) {
    makeSource(3);
    prepare();
    const ProcessEnd undisturbed = runUntilStop(command(), GetParam().exchange, 0);
    ASSERT_EQ(undisturbed.status, 0);
    ASSERT_EQ(found(), Found::newWhole);
    // The first half is the start of the program, which is the same in every variant.
    long stop = GetParam().exchange == Exchange::refused ? undisturbed.stops / 2 : 1;
    // The number of calls may differ by one or two from run to run, so the end tells itself.
    for (ProcessEnd end; end.status == -1; ++stop) {
        prepare();
        end = runUntilStop(command(), GetParam().exchange, stop);
        EXPECT_TRUE(end.status == -1 || end.status == 0) << end.status;
        judge("stop " + std::to_string(stop));
    }
    EXPECT_GT(stop, undisturbed.stops / 10 * 9);
    EXPECT_GT(seen_[GetParam().oldExists ? Found::oldWhole : Found::nothing], 0);
    EXPECT_GT(seen_[Found::newWhole], 0);
    EXPECT_GT(withLeftovers_, 0);
    print();
}

INSTANTIATE_TEST_SUITE_P(EveryWay, MakingKill, ::testing::ValuesIn(makingVariants),
                         [](const auto& row) { return row.param.name; });

class MakingKillAtAnyTime : public MakingKill {};

// How long a run takes changes with what else the machine does, so the moments are spread anew
// until some have lain in the work and some after its end.
TEST_P(MakingKillAtAnyTime, AtMomentsSpreadOverTheRunLeavesAWholeArchiveOrNone) {
    const char* const wanted = std::getenv("VESK_KILL_MOMENTS");
    const int moments = wanted != nullptr ? std::atoi(wanted) : 50;
    ASSERT_GE(moments, 10);
    makeSource(500);
    do {
        prepare();
        const auto start = std::chrono::steady_clock::now();
        ASSERT_EQ(run(command()).status, 0);
        const auto duration = std::chrono::steady_clock::now() - start;
        for (int moment = 0; moment < moments; ++moment) {
            prepare();
            runForTime(command(), duration * moment / moments);
            judge("moment " + std::to_string(moment));
        }
        print();
    } while (!HasFailure() && (withLeftovers_ == 0 || seen_[Found::newWhole] == 0));
}

INSTANTIATE_TEST_SUITE_P(ByName, MakingKillAtAnyTime,
                         ::testing::ValuesIn({makingVariants[0], makingVariants[1]}),
                         [](const auto& row) { return row.param.name; });

}  // namespace

}  // namespace vesk::testing
