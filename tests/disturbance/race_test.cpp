// SPDX-License-Identifier: MIT
// Several vesk-archive processes unpack to one destination at once. The destination is one of their
// trees, whole, and nothing is left beside it.
//
// Each race has VESK_RACES rounds, by default 25.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>

#include "tests/disturbance/running_program.h"
#include "tests/support/memory_dir.h"
#include "tests/support/tar_bytes.h"
#include "tests/support/tree.h"

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

struct Race {
    const char* name;
    int writers;
    bool overwrite;
    bool exchange;  ///< whether the system can exchange two directories in one step
};

std::ostream& operator<<(std::ostream& out, const Race& race) {
    return out << race.name;
}

const Race races[] = {
    {"TwoReplace", 2, true, true},
    {"ThreeReplace", 3, true, true},
    {"TwoReplaceWithoutExchange", 2, true, false},
    {"ThreeReplaceWithoutExchange", 3, true, false},
    {"TwoMake", 2, false, true},
    {"ThreeMake", 3, false, false},
};

/// In front of a command: renameat2 fails as on a file system that cannot exchange.
const std::vector<std::string> withoutExchange = {"strace",
                                                  "-f",
                                                  "--seccomp-bpf",
                                                  "-o",
                                                  "/dev/null",
                                                  "-e",
                                                  "trace=renameat2",
                                                  "-e",
                                                  "inject=renameat2:error=EINVAL"};

class Racing : public ::testing::TestWithParam<Race> {
protected:
    Racing() {
        for (int writer = 0; writer < GetParam().writers; ++writer) {
            const std::string name = std::to_string(writer);
            trees_.push_back({{"common", name}, {"sub/" + name, name}, {"sub/common", name}});
            std::string stream;
            for (const auto& [file, content] : trees_.back())
                stream += tarEntry(file, content);
            writeFile(root_ / (name + ".tar"), stream + tarEnd());
        }
    }

    std::vector<ProgramEnd> run() const {
        std::vector<RunningProgram> programs;
        for (int writer = 0; writer < GetParam().writers; ++writer) {
            std::vector<std::string> command;
            if (!GetParam().exchange) command = withoutExchange;
            const std::string archive = root_ / (std::to_string(writer) + ".tar");
            command.insert(command.end(),
                           {VESK_ARCHIVE, "unpack", "--quiet", archive, root_ / "work/tree"});
            if (GetParam().overwrite) command.push_back("--overwrite");
            programs.emplace_back(command);
        }
        std::vector<ProgramEnd> ends;
        for (RunningProgram& program : programs)
            ends.push_back(program.end());
        return ends;
    }

    void judge(const std::vector<ProgramEnd>& ends) {
        const auto found = std::find(trees_.begin(), trees_.end(), readTree(root_ / "work/tree"));
        ASSERT_NE(found, trees_.end()) << "no whole tree";
        EXPECT_EQ(ends[static_cast<std::size_t>(found - trees_.begin())].status, 0);
        EXPECT_EQ(std::distance(fs::directory_iterator(root_ / "work"), {}), 1);
        const auto succeeded = std::count_if(ends.begin(), ends.end(),
                                             [](const ProgramEnd& end) { return end.status == 0; });
        EXPECT_TRUE(GetParam().overwrite || succeeded == 1) << succeeded;
        for (const ProgramEnd& end : ends)
            EXPECT_TRUE(end.status == 0 || end.errors == message()) << end.status << end.errors;
        ++successes_[succeeded];
    }

    static std::string message() {
        return GetParam().overwrite
                   ? "vesk-archive: IOException: Cannot move extracted files to destination\n"
                   : "vesk-archive: IOException: Destination already exists\n";
    }

    const std::unique_ptr<TempDir> directory_ = makeMemoryDir();
    const TempDir& root_ = *directory_;
    std::vector<Tree> trees_;
    std::map<std::ptrdiff_t, int> successes_;
};

TEST_P(Racing, EndsWithOneWholeTreeAndNothingBesideIt) {
    const char* const wanted = std::getenv("VESK_RACES");
    const int rounds = wanted != nullptr ? std::atoi(wanted) : 25;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        fs::remove_all(root_ / "work");
        fs::create_directory(root_ / "work");
        if (GetParam().overwrite) writeTree(root_ / "work/tree", {{"old", "old"}});
        judge(run());
    }
    for (const auto& [succeeded, count] : successes_)
        std::printf("%d rounds in which %d succeeded\n", count, static_cast<int>(succeeded));
}

INSTANTIATE_TEST_SUITE_P(EveryWay, Racing, ::testing::ValuesIn(races),
                         [](const auto& row) { return row.param.name; });

}  // namespace

}  // namespace vesk::testing
