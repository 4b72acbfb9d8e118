// SPDX-License-Identifier: MIT
// vesk-archive is killed while it unpacks: the destination is the old tree or the new one, whole,
// at every instant.
//
// VESK_KILL_MOMENTS says at how many moments, spread evenly over its running time, it is killed
// besides those before and after each of its system calls; 50 where it is not set.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <optional>
#include <regex>
#include <set>

#include "tests/kill/traced_process.h"
#include "tests/support/memory_dir.h"
#include "tests/support/tar_bytes.h"
#include "tests/support/tree.h"

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

const Tree oldTree = {{"file", "old"}, {"sub/only old", "o"}, {"empty/", ""}};

/// What may be found at the destination.
enum class Found { nothing, oldWhole, newWhole, mixture };

struct Variant {
    const char* name;
    bool oldExists;
    Exchange exchange;
};

std::ostream& operator<<(std::ostream& out, const Variant& variant) {
    return out << variant.name;
}

const Variant variants[] = {
    {"ReplacingByExchange", true, Exchange::possible},
    {"ReplacingByTwoRenames", true, Exchange::refused},
    {"New", false, Exchange::possible},
    {"NewByPlainRename", false, Exchange::refused},
};

class Kill : public ::testing::TestWithParam<Variant> {
protected:
    /// Makes the archive of `files` files and the tree that it becomes.
    void makeArchive(int files) {
        std::string stream;
        for (int number = 0; number < files; ++number) {
            const std::string name = (number % 2 == 0 ? "sub/" : "") + std::to_string(number);
            newTree_[name] = "new " + name;
            stream += tarEntry(name, newTree_[name]);
        }
        newTree_["hollow/"] = "";
        writeFile(root_ / "archive.tar", stream + tarEntry("hollow/", "", '5') + tarEnd());
    }

    /// The command that is killed: it may replace the old tree where there is one.
    std::vector<std::string> command() const {
        std::vector<std::string> words = nextCommand();
        if (!GetParam().oldExists) words.pop_back();
        return words;
    }

    std::vector<std::string> nextCommand() const {
        return {VESK_ARCHIVE,        "unpack",     "--quiet", root_ / "archive.tar",
                root_ / "work/tree", "--overwrite"};
    }

    void prepare() const {
        fs::remove_all(root_ / "work");
        fs::create_directory(root_ / "work");
        if (!GetParam().oldExists) return;
        writeTree(root_ / "work/tree", {{"file", "old"}, {"sub/only old", "o"}});
        fs::create_directory(root_ / "work/tree/empty");
    }

    Found found() const {
        if (!fs::exists(fs::symlink_status(root_ / "work/tree"))) return Found::nothing;
        const Tree tree = readTree(root_ / "work/tree");
        if (tree == oldTree) return Found::oldWhole;
        return tree == newTree_ ? Found::newWhole : Found::mixture;
    }

    /// The names of what is beside the destination.
    std::set<std::string> leftovers() const {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(root_ / "work"))
            names.insert(entry.path().filename().native());
        names.erase("tree");
        return names;
    }

    bool isAllowed(Found state) const;
    void judge(const std::string& moment);

    void print() {
        std::printf("%d nothing, %d old tree, %d new tree; %d with leftovers\n",
                    seen_[Found::nothing], seen_[Found::oldWhole], seen_[Found::newWhole],
                    withLeftovers_);
    }

    const std::unique_ptr<TempDir> directory_ = makeMemoryDir();
    const TempDir& root_ = *directory_;
    Tree newTree_;
    std::map<Found, int> seen_;
    int withLeftovers_ = 0;
};

/// The destination is missing only where it has been before, or between the two renames.
bool Kill::isAllowed(Found state) const {
    if (state == Found::newWhole) return true;
    if (state == Found::oldWhole) return GetParam().oldExists;
    return state == Found::nothing &&
           (!GetParam().oldExists || GetParam().exchange == Exchange::refused);
}

/// Looks at what a killed run has left, and at the run after it.
void Kill::judge(const std::string& moment) {
    SCOPED_TRACE(moment);
    const Found state = found();
    EXPECT_TRUE(isAllowed(state)) << static_cast<int>(state);
    ++seen_[state];

    const std::set<std::string> left = leftovers();
    const std::regex telling(
        R"(\.tree\.vesk-(unpacking-new|unpacking-replacing|replaced)-[A-Za-z0-9]{6})");
    bool holdsOldTree = false;
    for (const std::string& name : left) {
        EXPECT_TRUE(std::regex_match(name, telling)) << name;
        holdsOldTree |= readTree(root_ / "work" / name) == oldTree;
    }
    EXPECT_TRUE(holdsOldTree || !GetParam().oldExists || state != Found::nothing);
    if (!left.empty()) ++withLeftovers_;

    EXPECT_EQ(run(nextCommand()).status, 0);
    EXPECT_EQ(found(), Found::newWhole);
    EXPECT_EQ(leftovers(), left);
}

TEST_P(Kill, AtEverySystemCallLeavesAWholeTree) {
    makeArchive(3);
    prepare();
    const ProcessEnd undisturbed = runUntilStop(command(), GetParam().exchange, 0);
    ASSERT_EQ(undisturbed.status, 0);
    ASSERT_EQ(found(), Found::newWhole);
    // The first half is the start of the program, the same with and without exchanges.
    const bool isRepetition = GetParam().exchange == Exchange::refused;
    long stop = isRepetition ? undisturbed.stops / 2 : 1;
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

INSTANTIATE_TEST_SUITE_P(EveryWay, Kill, ::testing::ValuesIn(variants),
                         [](const auto& row) { return row.param.name; });

class KillAtAnyTime : public Kill {
protected:
    /// Measures a run and kills as many others as there are moments in it.
    void killAtMoments(int moments) {
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
    }
};

// How long a run takes changes with what else the machine does, so the moments are spread anew
// until some have lain in the work and some after its end. One round nearly always does.
TEST_P(KillAtAnyTime, AtMomentsSpreadOverTheRunLeavesAWholeTree) {
    const char* const wanted = std::getenv("VESK_KILL_MOMENTS");
    const int moments = wanted != nullptr ? std::atoi(wanted) : 50;
    ASSERT_GE(moments, 10);
    makeArchive(200);
    constexpr int mostRounds = 20;
    for (int rounds = 0; withLeftovers_ == 0 || seen_[Found::newWhole] == 0; ++rounds) {
        ASSERT_LT(rounds, mostRounds) << "the moments do not spread over the run";
        killAtMoments(moments);
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(ByExchange, KillAtAnyTime, ::testing::ValuesIn({variants[0], variants[2]}),
                         [](const auto& row) { return row.param.name; });

}  // namespace

}  // namespace vesk::testing
