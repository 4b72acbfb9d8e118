// SPDX-License-Identifier: MIT
// Committing where renames fail: file systems that know neither exchange nor no-replace, things
// that come and go meanwhile, and moves that fail half-way.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/standinhost/rename_faults.h"
#include "tests/standinhost/staging_support.h"

namespace {

namespace fs = std::filesystem;
using vesk::testing::commit;
using vesk::testing::existingKinds;
using vesk::testing::Kind;
using vesk::testing::KindRow;
using vesk::testing::makeAt;
using vesk::testing::stageNewTree;
using vesk::testing::StagingResult;
using vesk::testing::TempDir;
using vesk::testing::Tree;
using vesk::testing::treeAfterReplacing;
using vesk::testing::treeAt;
using vesk::testing::writeFile;

struct ErrorRow {
    const char* name;
    int error;
};

constexpr ErrorRow unsupported[] = {
    {"EINVAL", EINVAL}, {"ENOSYS", ENOSYS}, {"EOPNOTSUPP", EOPNOTSUPP}};

const Tree onlyTheNewTree = {{"out", "/"}, {"out/new", "new"}};

void expectMoveFailure(const StagingResult& result) {
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.error, "Cannot move extracted files to destination");
}

TEST(CommitWithoutFlags, MovesTheTreeToWhereNothingWas) {
    for (const ErrorRow& row : unsupported) {
        for (const bool overwrite : {false, true}) {
            SCOPED_TRACE(row.name);
            const TempDir dir;
            const fs::path staging = stageNewTree(dir / "out", overwrite);
            RenameFaults faults;
            faults.beforeRenameat2 = [&](unsigned) { return row.error; };
            EXPECT_TRUE(commit(staging, dir / "out").ok);
            EXPECT_EQ(faults.renameat2Calls, 1);
            EXPECT_EQ(faults.renameCalls, 1);
            EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
        }
    }
}

TEST(CommitWithoutFlags, ReplacesWhateverExisted) {
    for (const ErrorRow& error : unsupported) {
        for (const KindRow& row : existingKinds) {
            SCOPED_TRACE(std::string(row.name) + ", " + error.name);
            const TempDir dir;
            makeAt(dir / "out", row.kind);
            const fs::path staging = stageNewTree(dir / "out", true);
            RenameFaults faults;
            faults.beforeRenameat2 = [&](unsigned) { return error.error; };
            EXPECT_TRUE(commit(staging, dir / "out").ok);
            EXPECT_EQ(faults.renameat2Calls, 1);
            EXPECT_EQ(faults.renameCalls, 2);
            EXPECT_EQ(treeAt(dir.path()), treeAfterReplacing(row.kind));
        }
    }
}

TEST(CommitWithoutFlags, KeepsTheOldTreeUnderATellingNameInBetween) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    const fs::path staging = stageNewTree(dir / "out", true);
    RenameFaults faults;
    faults.beforeRenameat2 = [](unsigned) { return EINVAL; };
    std::vector<std::string> moves;
    faults.beforeRename = [&](const std::string& from, const std::string& to) {
        moves.push_back(fs::path(from).filename().native() + " " +
                        fs::path(to).filename().native());
        return 0;
    };
    EXPECT_TRUE(commit(staging, dir / "out").ok);
    const std::string name = staging.filename();
    const std::vector<std::string> expected = {
        "out .out.vesk-replaced-" + name.substr(name.size() - 6), name + " out"};
    EXPECT_EQ(moves, expected);
}

TEST(CommitWithoutFlags, RefusesWhatAppearedMeanwhile) {
    for (const KindRow& row : existingKinds) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        const fs::path staging = stageNewTree(dir / "out", false);
        makeAt(dir / "out", row.kind);
        const Tree before = treeAt(dir.path());
        RenameFaults faults;
        faults.beforeRenameat2 = [](unsigned) { return EINVAL; };
        const StagingResult committed = commit(staging, dir / "out");
        EXPECT_FALSE(committed.ok);
        EXPECT_EQ(committed.error, "Destination already exists");
        EXPECT_EQ(faults.renameat2Calls, 1);
        EXPECT_EQ(treeAt(dir.path()), before);
    }
}

TEST(CommitWithoutFlags, RefusesWhatAppearsAtTheLastMoment) {
    for (const Kind kind : {Kind::tree, Kind::file, Kind::dangling}) {
        SCOPED_TRACE(static_cast<int>(kind));
        const TempDir dir;
        const fs::path staging = stageNewTree(dir / "out", false);
        RenameFaults faults;
        faults.beforeRenameat2 = [](unsigned) { return EINVAL; };
        Tree before;
        faults.beforeRename = [&](const std::string&, const std::string&) {
            makeAt(dir / "out", kind);
            before = treeAt(dir.path());
            return 0;
        };
        const StagingResult committed = commit(staging, dir / "out");
        EXPECT_FALSE(committed.ok);
        EXPECT_EQ(committed.error, "Destination already exists");
        EXPECT_EQ(faults.renameCalls, 1);
        EXPECT_EQ(treeAt(dir.path()), before);
    }
}

TEST(CommitWithoutFlags, PutsTheOldTreeBackWhenTheNewOneCannotBeMoved) {
    for (const KindRow& row : existingKinds) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        makeAt(dir / "out", row.kind);
        const fs::path staging = stageNewTree(dir / "out", true);
        const Tree before = treeAt(dir.path());
        RenameFaults faults;
        faults.beforeRenameat2 = [](unsigned) { return EINVAL; };
        faults.beforeRename = [&](const std::string&, const std::string&) {
            return faults.renameCalls == 2 ? EIO : 0;
        };
        expectMoveFailure(commit(staging, dir / "out"));
        EXPECT_EQ(faults.renameCalls, 3);
        EXPECT_EQ(treeAt(dir.path()), before);
    }
}

TEST(CommitWithoutFlags, KeepsTheOldTreeWhenItCannotBeMovedAside) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    const fs::path staging = stageNewTree(dir / "out", true);
    const Tree before = treeAt(dir.path());
    RenameFaults faults;
    faults.beforeRenameat2 = [](unsigned) { return EINVAL; };
    faults.beforeRename = [](const std::string&, const std::string&) { return EIO; };
    expectMoveFailure(commit(staging, dir / "out"));
    EXPECT_EQ(faults.renameCalls, 1);
    EXPECT_EQ(treeAt(dir.path()), before);
}

TEST(CommitWithoutFlags, OverwritesNothingWithTheOldTree) {
    const TempDir dir;
    makeAt(dir / "out", Kind::file);
    const fs::path staging = stageNewTree(dir / "out", true);
    const std::string name = staging.filename();
    writeFile(dir / (".out.vesk-replaced-" + name.substr(name.size() - 6)), "somebody's");
    const Tree before = treeAt(dir.path());
    RenameFaults faults;
    faults.beforeRenameat2 = [](unsigned) { return EINVAL; };
    expectMoveFailure(commit(staging, dir / "out"));
    EXPECT_EQ(faults.renameat2Calls, 1);
    EXPECT_EQ(treeAt(dir.path()), before);
}

TEST(CommitFault, KeepsTheOldTreeAndTriesNoOtherWay) {
    for (const ErrorRow& row : {ErrorRow{"EIO", EIO}, ErrorRow{"EBUSY", EBUSY},
                                ErrorRow{"EXDEV", EXDEV}, ErrorRow{"EACCES", EACCES}}) {
        for (const bool overwrite : {false, true}) {
            SCOPED_TRACE(row.name);
            const TempDir dir;
            if (overwrite) makeAt(dir / "out", Kind::tree);
            const fs::path staging = stageNewTree(dir / "out", overwrite);
            const Tree before = treeAt(dir.path());
            RenameFaults faults;
            faults.beforeRenameat2 = [&](unsigned) { return row.error; };
            expectMoveFailure(commit(staging, dir / "out"));
            EXPECT_EQ(faults.renameat2Calls, 1);
            EXPECT_EQ(faults.renameCalls, 0);
            EXPECT_EQ(treeAt(dir.path()), before);
        }
    }
}

TEST(CommitRace, ReplacesInOneStep) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    const fs::path staging = stageNewTree(dir / "out", true);
    RenameFaults faults;
    unsigned usedFlags = 0;
    faults.beforeRenameat2 = [&](unsigned flags) {
        usedFlags = flags;
        return 0;
    };
    EXPECT_TRUE(commit(staging, dir / "out").ok);
    EXPECT_EQ(usedFlags, 2U);  // RENAME_EXCHANGE
    EXPECT_EQ(faults.renameat2Calls, 1);
    EXPECT_EQ(faults.renameCalls, 0);
}

TEST(CommitRace, MovesTheTreeWhenWhatItReplacesGoesAtTheLastMoment) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    const fs::path staging = stageNewTree(dir / "out", true);
    RenameFaults faults;
    faults.beforeRenameat2 = [&](unsigned) {
        fs::remove_all(dir / "out");
        return 0;
    };
    EXPECT_TRUE(commit(staging, dir / "out").ok);
    EXPECT_EQ(faults.renameat2Calls, 2);
    EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
}

TEST(CommitRace, ReplacesWhatAppearsAtTheLastMoment) {
    for (const KindRow& row : {KindRow{"file", Kind::file}, KindRow{"tree", Kind::tree},
                               KindRow{"dangling link", Kind::dangling}}) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        const fs::path staging = stageNewTree(dir / "out", true);
        RenameFaults faults;
        faults.beforeRenameat2 = [&](unsigned) {
            if (faults.renameat2Calls == 1) makeAt(dir / "out", row.kind);
            return 0;
        };
        EXPECT_TRUE(commit(staging, dir / "out").ok);
        EXPECT_EQ(faults.renameat2Calls, 2);
        EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
    }
}

TEST(CommitRace, GivesUpOnATargetThatComesAndGoesForever) {
    const TempDir dir;
    makeAt(dir / "out", Kind::file);
    const fs::path staging = stageNewTree(dir / "out", true);
    RenameFaults faults;
    faults.beforeRenameat2 = [&](unsigned flags) {
        if (flags == RENAME_EXCHANGE) fs::remove(dir / "out");
        if (flags == RENAME_NOREPLACE) makeAt(dir / "out", Kind::file);
        return 0;
    };
    expectMoveFailure(commit(staging, dir / "out"));
    EXPECT_EQ(faults.renameat2Calls, 16);
    const Tree expected = {
        {"out", "old"}, {staging.filename(), "/"}, {staging.filename().native() + "/new", "new"}};
    EXPECT_EQ(treeAt(dir.path()), expected);
}

}  // namespace
