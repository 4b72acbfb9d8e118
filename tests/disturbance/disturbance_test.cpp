// SPDX-License-Identifier: MIT
// Paths are moved, removed and replaced while vesk-archive unpacks: what it calls unpacked is the
// whole tree, what it calls failed has changed nothing, and nothing of it is left anywhere.
//
// VESK_DISTURBANCES says at how many moments, spread over the running time, each disturbance comes;
// 12 where it is not set.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <thread>

#include "tests/disturbance/running_program.h"
#include "tests/support/memory_dir.h"
#include "tests/support/tar_bytes.h"
#include "tests/support/tree.h"

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

const Tree oldTree = {{"file", "old"}, {"sub/only old", "o"}, {"empty/", ""}};

/// The directory that holds the destination "tree", and what the disturbances use besides it.
struct Place {
    fs::path root;
    fs::path parent = root / "parent";
    fs::path elsewhere = root / "elsewhere";

    /// The staging directory; empty when there is none.
    fs::path staging() const {
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(parent, error))
            if (entry.path().filename().native().starts_with(".tree.vesk-unpacking-"))
                return entry.path();
        return {};
    }
};

void removeStaging(const Place& place) {
    std::error_code error;
    if (const fs::path staging = place.staging(); !staging.empty()) fs::remove_all(staging, error);
}

void removeTree(const Place& place) {
    std::error_code error;
    if (const fs::path staging = place.staging(); !staging.empty())
        fs::remove_all(staging / "tree", error);
}

void removeOneFile(const Place& place) {
    std::error_code error;
    if (const fs::path staging = place.staging(); !staging.empty())
        fs::remove(staging / "tree/sub/0", error);
}

void renameStaging(const Place& place) {
    std::error_code error;
    if (const fs::path staging = place.staging(); !staging.empty())
        fs::rename(staging, place.parent / "renamed", error);
}

void moveStagingElsewhere(const Place& place) {
    std::error_code error;
    if (const fs::path staging = place.staging(); !staging.empty())
        fs::rename(staging, place.elsewhere / "moved", error);
}

void replaceTree(const Place& place) {
    std::error_code error;
    const fs::path staging = place.staging();
    if (staging.empty()) return;
    fs::rename(staging / "tree", staging / "taken away", error);
    fs::create_directory(staging / "tree", error);
}

void makeTheParentAnew(const Place& place) {
    fs::rename(place.parent, place.root / "moved");
    fs::create_directory(place.parent);
}

void replaceTheParentByALink(const Place& place) {
    fs::rename(place.parent, place.root / "moved");
    fs::create_symlink(place.elsewhere, place.parent);
}

struct Disturbance {
    const char* name;
    void (*disturb)(const Place& place);
};

std::ostream& operator<<(std::ostream& out, const Disturbance& disturbance) {
    return out << disturbance.name;
}

const Disturbance disturbances[] = {
    {"StagingIsRemoved", removeStaging},
    {"TreeIsRemoved", removeTree},
    {"OneFileIsRemoved", removeOneFile},
    {"StagingIsRenamed", renameStaging},
    {"StagingIsMovedElsewhere", moveStagingElsewhere},
    {"TreeIsReplaced", replaceTree},
    {"ParentIsMadeAnew", makeTheParentAnew},
    {"ParentIsReplacedByALink", replaceTheParentByALink},
};

class Disturbed : public ::testing::TestWithParam<std::tuple<Disturbance, bool>> {
protected:
    Disturbed() {
        std::string stream;
        for (int number = 0; number < 1000; ++number) {
            const std::string name = (number % 2 == 0 ? "sub/" : "flat") + std::to_string(number);
            newTree_[name] = "new";
            stream += tarEntry(name, "new");
        }
        writeFile(place_.root / "archive.tar", stream + tarEnd());
    }

    bool replaces() const { return std::get<1>(GetParam()); }

    void prepare() const {
        for (const char* name : {"parent", "moved", "elsewhere"})
            fs::remove_all(place_.root / name);
        fs::create_directory(place_.parent);
        fs::create_directory(place_.elsewhere);
        if (!replaces()) return;
        writeTree(place_.parent / "tree", {{"file", "old"}, {"sub/only old", "o"}});
        fs::create_directory(place_.parent / "tree/empty");
    }

    RunningProgram start() const {
        return RunningProgram({VESK_ARCHIVE, "unpack", "--quiet", place_.root / "archive.tar",
                               place_.parent / "tree", "--overwrite"});
    }

    std::chrono::nanoseconds undisturbedTime() const {
        prepare();
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(start().end().status, 0);
        return std::chrono::steady_clock::now() - begin;
    }

    void judge(const ProgramEnd& end);

    const std::unique_ptr<TempDir> directory_ = makeMemoryDir();
    const Place place_{directory_->path()};
    Tree newTree_;
    std::map<int, int> ends_;
};

/// Everything below the root that is left when the program has ended, but the archive.
Tree everythingIn(const Place& place) {
    Tree all = readTree(place.root);
    all.erase("archive.tar");
    for (const char* name : {"parent/", "moved/", "elsewhere/", "parent?"})
        all.erase(name);
    return all;
}

Tree below(const std::string& directory, const Tree& tree) {
    Tree result;
    for (const auto& [name, content] : tree)
        result[directory + "/" + name] = content;
    return result;
}

void Disturbed::judge(const ProgramEnd& end) {
    ++ends_[end.status];
    const Tree all = everythingIn(place_);
    const bool succeeded = end.status == 0;
    EXPECT_EQ(end.errors.empty(), succeeded);
    EXPECT_TRUE(succeeded || end.status == 1) << end.status << end.errors;
    const Tree expected = succeeded ? newTree_ : replaces() ? oldTree : Tree();
    // The parent may have been moved after the end, or, when it failed, before.
    const bool isWhole =
        all == below("parent/tree", expected) || all == below("moved/tree", expected);
    EXPECT_TRUE(isWhole) << (succeeded ? "succeeded" : end.errors) << " with " << all.size()
                         << " of " << expected.size() << ", such as "
                         << (all.empty() ? "" : all.begin()->first);
}

TEST_P(Disturbed, EndsWithAWholeTreeOrAsItWasAndLeavesNothing) {
    const char* const wanted = std::getenv("VESK_DISTURBANCES");
    const int moments = wanted != nullptr ? std::atoi(wanted) : 12;
    const auto time = undisturbedTime();
    for (int moment = 0; moment < moments; ++moment) {
        SCOPED_TRACE(moment);
        prepare();
        RunningProgram program = start();
        while (!fs::exists(place_.staging() / "tree") && program.isRunning())
            std::this_thread::yield();
        std::this_thread::sleep_for(time * moment / moments);
        std::get<0>(GetParam()).disturb(place_);
        judge(program.end());
        if (HasFailure()) break;
    }
    std::printf("%d unpacked, %d failed\n", ends_[0], ends_[1]);
}

INSTANTIATE_TEST_SUITE_P(EveryWay, Disturbed,
                         ::testing::Combine(::testing::ValuesIn(disturbances), ::testing::Bool()),
                         [](const auto& row) {
                             return std::string(std::get<0>(row.param).name) +
                                    (std::get<1>(row.param) ? "WhileReplacing" : "");
                         });

}  // namespace

}  // namespace vesk::testing
