// SPDX-License-Identifier: MIT
// Paths are moved, removed and replaced while vesk-archive unpacks. Success means that the whole
// tree is there; failure means that nothing has changed. Nothing is left anywhere else.
//
// A process that removes files may go on removing them after the tree is in its place, and even
// after the program's end. Nothing can prevent that. So a file that vanished before must have been
// noticed, and exactly the files that were removed later may be missing from what was unpacked.
//
// Each disturbance comes at VESK_DISTURBANCES moments, by default 12, spread over the running time.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <thread>

#include "tests/disturbance/running_program.h"
#include "tests/disturbance/tree_remover.h"
#include "tests/support/memory_dir.h"
#include "tests/support/tar_bytes.h"
#include "tests/support/tree.h"

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

const Tree oldTree = {{"file", "old"}, {"sub/only old", "o"}, {"empty/", ""}};

/// The directory that contains the destination "tree", and what the disturbances use besides it.
struct Place {
    fs::path root;
    fs::path parent = root / "parent";
    fs::path elsewhere = root / "elsewhere";

    /// Returns the staging directory; empty when there is none.
    fs::path staging() const {
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(parent, error))
            if (entry.path().filename().native().starts_with(".tree.vesk-unpacking-"))
                return entry.path();
        return {};
    }

    /// Opens the tree in the staging directory; -1 when there is none.
    int openTree() const {
        const fs::path directory = staging();
        if (directory.empty()) return -1;
        return open((directory / "tree").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    }
};

void removeStaging(const Place& place, TreeRemover& remover) {
    if (const fs::path staging = place.staging(); !staging.empty()) remover.removeStaging(staging);
}

void removeTree(const Place& place, TreeRemover& remover) {
    if (const fs::path staging = place.staging(); !staging.empty()) remover.removeTree(staging);
}

void removeOneFile(const Place& place, TreeRemover& remover) {
    if (const fs::path staging = place.staging(); !staging.empty())
        remover.removeFile(staging, "sub/0");
}

void renameStaging(const Place& place, TreeRemover& /*remover*/) {
    std::error_code error;
    if (const fs::path staging = place.staging(); !staging.empty())
        fs::rename(staging, place.parent / "renamed", error);
}

void moveStagingElsewhere(const Place& place, TreeRemover& /*remover*/) {
    std::error_code error;
    if (const fs::path staging = place.staging(); !staging.empty())
        fs::rename(staging, place.elsewhere / "moved", error);
}

/// Replaces the tree in one step. In two steps, the program might look through the staging
/// directory in between to remove it, and the new tree would stay there.
void replaceTree(const Place& place, TreeRemover& /*remover*/) {
    const fs::path staging = place.staging();
    if (staging.empty()) return;
    fs::create_directory(place.elsewhere / "taken");
    renameat2(AT_FDCWD, (place.elsewhere / "taken").c_str(), AT_FDCWD, (staging / "tree").c_str(),
              RENAME_EXCHANGE);
}

void recreateTheParent(const Place& place, TreeRemover& /*remover*/) {
    fs::rename(place.parent, place.root / "moved");
    fs::create_directory(place.parent);
}

void replaceTheParentByALink(const Place& place, TreeRemover& /*remover*/) {
    fs::rename(place.parent, place.root / "moved");
    fs::create_symlink(place.elsewhere, place.parent);
}

struct Disturbance {
    const char* name;
    void (*disturb)(const Place& place, TreeRemover& remover);
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
    {"ParentIsRecreated", recreateTheParent},
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

    int openTreeOf(const RunningProgram& program) const;
    void judge(const ProgramEnd& end, const RemovedNames& removed);

    const std::unique_ptr<TempDir> directory_ = makeMemoryDir();
    const Place place_{directory_->path()};
    Tree newTree_;
    std::map<int, int> ends_;
};

/// Returns everything below the root that is left when the program has ended, except the archive.
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

/// Returns `tree` without what was removed. A directory that has lost all its content stays.
Tree without(const std::set<std::string>& removed, const Tree& tree) {
    Tree rest;
    std::set<std::string> directories = {""};
    for (const auto& [name, content] : tree) {
        if (!name.ends_with('/') && !removed.contains(name)) rest[name] = content;
        for (std::size_t slash = name.find('/'); slash != std::string::npos;
             slash = name.find('/', slash + 1))
            directories.insert(name.substr(0, slash));
    }
    // The names within a directory come after its own.
    for (auto name = directories.rbegin(); name != directories.rend(); ++name) {
        const std::string start = name->empty() ? "" : *name + "/";
        const auto inside = rest.lower_bound(start);
        const bool isEmpty = inside == rest.end() || !inside->first.starts_with(start);
        if (isEmpty && !removed.contains(*name)) rest[start] = "";
    }
    return rest;
}

/// Waits for the tree in the program's staging directory and opens it. Returns -1 when the program
/// has ended before.
int Disturbed::openTreeOf(const RunningProgram& program) const {
    int tree = -1;
    while ((tree = place_.openTree()) == -1 && program.isRunning())
        std::this_thread::yield();
    return tree;
}

void Disturbed::judge(const ProgramEnd& end, const RemovedNames& removed) {
    ++ends_[end.status];
    // What the disturbance has moved away belongs to nobody any more.
    fs::remove_all(place_.elsewhere / "taken");
    const Tree all = everythingIn(place_);
    const bool succeeded = end.status == 0;
    EXPECT_EQ(end.errors.empty(), succeeded);
    EXPECT_TRUE(succeeded || end.status == 1) << end.status << end.errors;
    EXPECT_FALSE(succeeded && removed.fileBeforePlaced);
    const Tree expected = succeeded    ? without(removed.fromPlaced, newTree_)
                          : replaces() ? without(removed.fromOld, oldTree)
                                       : Tree();
    // The parent may have been moved after the end or, when the program failed, before it.
    const bool isWhole =
        all == below("parent/tree", expected) || all == below("moved/tree", expected);
    EXPECT_TRUE(isWhole) << (succeeded ? "succeeded" : end.errors) << " with " << all.size()
                         << " of " << expected.size() << ", such as "
                         << (all.empty() ? "" : all.begin()->first);
}

TEST_P(Disturbed, EndsWithTheWholeTreeOrUnchangedAndLeavesNothing) {
    const char* const wanted = std::getenv("VESK_DISTURBANCES");
    const int moments = wanted != nullptr ? std::atoi(wanted) : 12;
    const auto time = undisturbedTime();
    for (int moment = 0; moment < moments; ++moment) {
        SCOPED_TRACE(moment);
        prepare();
        RunningProgram program = start();
        TreeRemover remover(openTreeOf(program), place_.parent / "tree");
        std::this_thread::sleep_for(time * moment / moments);
        std::get<0>(GetParam()).disturb(place_, remover);
        judge(program.end(), remover.removed());
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
