// SPDX-License-Identifier: MIT
// Committing when renames fail: file systems that cannot exchange, things that appear and vanish
// meanwhile, moves and flushes that fail.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "standinhost/standin_host.h"
#include "tests/standinhost/rename_faults.h"
#include "tests/standinhost/staging_support.h"
#include "tests/support/ordinary_user.h"

namespace {

namespace fs = std::filesystem;
using vesk::runtime::archives::removeExtractionTree;
using vesk::standin::takeLeftover;
using namespace vesk::testing;

struct ErrorRow {
    const char* name;
    int error;
};

constexpr ErrorRow unsupported[] = {
    {"EINVAL", EINVAL}, {"ENOSYS", ENOSYS}, {"EOPNOTSUPP", EOPNOTSUPP}};

const Tree onlyTheNewTree = {{"out", "/"}, {"out/new", "new"}};

/// Makes every exchange fail as on a file system that has none.
void refuseExchanges(RenameFaults& faults) {
    faults.beforeExchange = [] { return EINVAL; };
}

void expectMoveFailure(const StagingResult& result) {
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.error, "Cannot move extracted files to destination");
}

/// Returns what is left when the module has removed the tree after a failure.
Tree treeAfterRemoval(const TempDir& dir, const fs::path& staging) {
    removeExtractionTree(staging);
    return treeAt(dir.path());
}

/// Prepares staging as the module does after asking for the mode.
fs::path stageWithSync(const fs::path& destination) {
    vesk::standin::Mode mode{true, true};
    const bool overwrite = vesk::runtime::archives::modeIsOverwrite(&mode);
    return stageNewTree(destination, overwrite);
}

TEST(CommitWithoutExchange, MovesTheTreeToAnUnusedPath) {
    for (const bool overwrite : {false, true}) {
        const TempDir dir;
        const fs::path staging = stageNewTree(dir / "out", overwrite);
        RenameFaults faults;
        refuseExchanges(faults);
        EXPECT_TRUE(commit(staging, dir / "out").ok);
        EXPECT_EQ(faults.exchangeCalls, 0);
        EXPECT_EQ(faults.renameCalls, 1);
        EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
    }
}

TEST(CommitWithoutExchange, ReplacesWhatMayBeReplaced) {
    for (const ErrorRow& error : unsupported) {
        for (const KindRow& row : replaceableKinds) {
            SCOPED_TRACE(std::string(row.name) + ", " + error.name);
            const TempDir dir;
            makeAt(dir / "out", row.kind);
            const fs::path staging = stageNewTree(dir / "out", true);
            RenameFaults faults;
            faults.beforeExchange = [&] { return error.error; };
            EXPECT_TRUE(commit(staging, dir / "out").ok);
            EXPECT_EQ(faults.exchangeCalls, 1);
            EXPECT_EQ(treeAt(dir.path()), treeAfterReplacing(row.kind));
            EXPECT_FALSE(takeLeftover());
        }
    }
}

TEST(CommitWithoutExchange, ReplacesAReadOnlyTree) {
    const TempDir dir;
    fs::permissions(dir.path(), fs::perms{0777});
    const std::string error = asOrdinaryUser([&] {
        makeAt(dir / "parent/out", Kind::tree);
        fs::permissions(dir / "parent/out", fs::perms{0555});
        const fs::path staging = stageNewTree(dir / "parent/out", true);
        RenameFaults faults;
        refuseExchanges(faults);
        return commit(staging, dir / "parent/out").error;
    });
    EXPECT_EQ(error, "before");
    EXPECT_EQ(treeAt(dir / "parent"), onlyTheNewTree);
    EXPECT_EQ(fs::status(dir / "parent/out").permissions(), fs::perms{0555});
}

TEST(CommitWithoutExchange, KeepsTheOldTreeUnderAClearNameMeanwhile) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    const fs::path staging = stageNewTree(dir / "out", true);
    const std::string name = directoryOf(staging).filename();
    RenameFaults faults;
    refuseExchanges(faults);
    std::vector<std::string> moves;
    faults.beforeRename = [&](const std::string& from, const std::string& to) {
        moves.push_back(from + " " + to);
        return 0;
    };
    EXPECT_TRUE(commit(staging, dir / "out").ok);
    const std::string aside = ".out.vesk-replaced-" + name.substr(name.size() - 6);
    ASSERT_GE(moves.size(), 2U);
    EXPECT_EQ(moves[0], "out " + aside);
    EXPECT_EQ(moves[1], "moved out");
}

TEST(CommitWithoutExchange, ReplacesWhatAppearsBetweenTheRenames) {
    for (const KindRow& row : {KindRow{"tree", Kind::tree}, KindRow{"file", Kind::file}}) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        makeAt(dir / "out", Kind::tree);
        const fs::path staging = stageNewTree(dir / "out", true);
        RenameFaults faults;
        refuseExchanges(faults);
        int placings = 0;
        faults.beforeRename = [&](const std::string& from, const std::string&) {
            if (from == "moved" && ++placings <= 3) makeAt(dir / "out", row.kind);
            return 0;
        };
        EXPECT_TRUE(commit(staging, dir / "out").ok);
        EXPECT_EQ(placings, 4);
        EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
        EXPECT_FALSE(takeLeftover());
    }
}

TEST(CommitWithoutExchange, PutsTheOldTreeBackWhenTheNewOneCannotBeMoved) {
    for (const KindRow& row : replaceableKinds) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        makeAt(dir / "out", row.kind);
        const Tree before = treeAt(dir.path());
        const fs::path staging = stageNewTree(dir / "out", true);
        RenameFaults faults;
        refuseExchanges(faults);
        faults.beforeRename = [&](const std::string& from, const std::string&) {
            return from == "moved" ? EIO : 0;
        };
        expectMoveFailure(commit(staging, dir / "out"));
        EXPECT_EQ(faults.renameCalls, 3);
        EXPECT_EQ(treeAfterRemoval(dir, staging), before);
        EXPECT_FALSE(takeLeftover());
    }
}

TEST(CommitWithoutExchange, ReportsWhereAnOldTreeIsThatCannotBePutBack) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    const fs::path staging = stageNewTree(dir / "out", true);
    RenameFaults faults;
    refuseExchanges(faults);
    faults.beforeRename = [&](const std::string& from, const std::string&) {
        return from == "out" ? 0 : EIO;
    };
    expectMoveFailure(commit(staging, dir / "out"));
    removeExtractionTree(staging);
    const auto left = takeLeftover();
    ASSERT_TRUE(left);
    EXPECT_TRUE(left->isOldTree);
    EXPECT_TRUE(left->path.native().starts_with((dir / ".out.vesk-replaced-").native()));
    EXPECT_EQ(treeAt(left->path), (Tree{{"sub", "/"}, {"sub/old", "old"}}));
    EXPECT_EQ(treeAt(dir.path()).size(), 3U);
}

TEST(CommitWithoutExchange, KeepsTheOldTreeWhenItCannotBeMovedAside) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    const Tree before = treeAt(dir.path());
    const fs::path staging = stageNewTree(dir / "out", true);
    RenameFaults faults;
    refuseExchanges(faults);
    faults.beforeRename = [](const std::string&, const std::string&) { return EIO; };
    expectMoveFailure(commit(staging, dir / "out"));
    EXPECT_EQ(faults.renameCalls, 1);
    EXPECT_EQ(treeAfterRemoval(dir, staging), before);
}

TEST(CommitWithoutExchange, OverwritesNothingWithTheOldTree) {
    const TempDir dir;
    makeAt(dir / "out", Kind::file);
    const fs::path staging = stageNewTree(dir / "out", true);
    const std::string name = directoryOf(staging).filename();
    const std::string aside = ".out.vesk-replaced-" + name.substr(name.size() - 6);
    writeFile(dir / aside, "somebody's");
    RenameFaults faults;
    refuseExchanges(faults);
    expectMoveFailure(commit(staging, dir / "out"));
    EXPECT_EQ(faults.renameCalls, 0);
    EXPECT_EQ(treeAfterRemoval(dir, staging), (Tree{{"out", "old"}, {aside, "somebody's"}}));
}

TEST(CommitRace, RefusesWhatAppearsAtTheLastMoment) {
    for (const KindRow& row : existingKinds()) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        const fs::path staging = stageNewTree(dir / "out", false);
        RenameFaults faults;
        faults.beforeRename = [&](const std::string&, const std::string&) {
            makeAt(dir / "out", row.kind);
            return 0;
        };
        const StagingResult committed = commit(staging, dir / "out");
        EXPECT_FALSE(committed.ok);
        EXPECT_EQ(committed.error, "Destination already exists");
        EXPECT_EQ(faults.renameCalls, 1);
        const TempDir same;
        makeAt(same / "out", row.kind);
        EXPECT_EQ(treeAfterRemoval(dir, staging), treeAt(same.path()));
    }
}

TEST(CommitFault, KeepsTheOldTreeAndTriesNoOtherWay) {
    struct Row {
        const char* name;
        int error;
        const char* message;
    };
    const char* const cannotMove = "Cannot move extracted files to destination";
    for (const Row& row : {Row{"EIO", EIO, cannotMove}, Row{"EBUSY", EBUSY, cannotMove},
                           Row{"EXDEV", EXDEV, "Destination cannot be moved by its file system"}}) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        makeAt(dir / "out", Kind::tree);
        const Tree before = treeAt(dir.path());
        const fs::path staging = stageNewTree(dir / "out", true);
        RenameFaults faults;
        faults.beforeExchange = [&] { return row.error; };
        EXPECT_EQ(commit(staging, dir / "out").error, row.message);
        EXPECT_EQ(faults.exchangeCalls, 1);
        EXPECT_EQ(faults.renameCalls, 0);
        EXPECT_EQ(treeAfterRemoval(dir, staging), before);
    }
}

TEST(CommitFault, LeavesNothingWhenTheTreeCannotBeMoved) {
    for (const int error : {EIO, EXDEV, EROFS}) {
        const TempDir dir;
        const fs::path staging = stageNewTree(dir / "made/out", false);
        RenameFaults faults;
        faults.beforeRename = [&](const std::string&, const std::string&) { return error; };
        expectMoveFailure(commit(staging, dir / "made/out"));
        EXPECT_EQ(treeAfterRemoval(dir, staging), Tree{});
    }
}

TEST(CommitFault, GivesBackThePermissionsOfATreeThatItCouldNotReplace) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    fs::permissions(dir / "out", fs::perms{0550});
    const fs::path staging = stageNewTree(dir / "out", true);
    RenameFaults faults;
    faults.beforeExchange = [] { return EACCES; };
    expectMoveFailure(commit(staging, dir / "out"));
    EXPECT_EQ(faults.exchangeCalls, 2);
    EXPECT_EQ(fs::status(dir / "out").permissions(), fs::perms{0550});
}

TEST(CommitFault, GivesBackThePermissionsOfAnEmptyDirectoryThatItCouldNotReplace) {
    const TempDir dir;
    fs::create_directory(dir / "out");
    fs::permissions(dir / "out", fs::perms{0550});
    const fs::path staging = stageNewTree(dir / "out", false);
    RenameFaults faults;
    faults.beforeRename = [](const std::string&, const std::string&) { return EACCES; };
    expectMoveFailure(commit(staging, dir / "out"));
    EXPECT_EQ(fs::status(dir / "out").permissions(), fs::perms{0550});
}

TEST(CommitRace, ReplacesInOneStep) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    const fs::path staging = stageNewTree(dir / "out", true);
    RenameFaults faults;
    EXPECT_TRUE(commit(staging, dir / "out").ok);
    EXPECT_EQ(faults.exchangeCalls, 1);
    EXPECT_EQ(faults.renameCalls, 0);
}

TEST(CommitRace, MovesTheTreeWhenTheOldOneVanishesAtTheLastMoment) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    const fs::path staging = stageNewTree(dir / "out", true);
    RenameFaults faults;
    faults.beforeExchange = [&] {
        fs::remove_all(dir / "out");
        return 0;
    };
    EXPECT_TRUE(commit(staging, dir / "out").ok);
    EXPECT_EQ(faults.exchangeCalls, 1);
    EXPECT_EQ(faults.renameCalls, 1);
    EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
}

TEST(CommitRace, ReplacesWhatAppearsAtTheLastMoment) {
    for (const KindRow& row : {KindRow{"file", Kind::file}, KindRow{"tree", Kind::tree}}) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        const fs::path staging = stageNewTree(dir / "out", true);
        RenameFaults faults;
        faults.beforeRename = [&](const std::string&, const std::string&) {
            makeAt(dir / "out", row.kind);
            return 0;
        };
        EXPECT_TRUE(commit(staging, dir / "out").ok);
        EXPECT_EQ(faults.renameCalls, 1);
        EXPECT_EQ(faults.exchangeCalls, 1);
        EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
    }
}

TEST(CommitRace, GivesUpOnATargetThatKeepsChanging) {
    const TempDir dir;
    makeAt(dir / "out", Kind::file);
    const fs::path staging = stageNewTree(dir / "out", true);
    RenameFaults faults;
    faults.beforeExchange = [&] {
        fs::remove(dir / "out");
        return 0;
    };
    faults.beforeRename = [&](const std::string&, const std::string&) {
        makeAt(dir / "out", Kind::file);
        return 0;
    };
    expectMoveFailure(commit(staging, dir / "out"));
    EXPECT_EQ(faults.exchangeCalls, 16);
    EXPECT_EQ(faults.renameCalls, 16);
    EXPECT_EQ(treeAfterRemoval(dir, staging), (Tree{{"out", "old"}}));
}

TEST(CommitWithSync, FlushesTheFilesBeforeTheTreeIsInPlaceAndItsDirectoryAfterwards) {
    for (const Kind existing : {Kind::nothing, Kind::tree}) {
        const TempDir dir;
        makeAt(dir / "out", existing);
        const fs::path staging = stageWithSync(dir / "out");
        RenameFaults faults;
        std::vector<std::string> flushes;
        faults.flush = [&](const std::string& what) {
            flushes.push_back(what + (fs::exists(dir / "out/new") ? " after" : " before"));
            return 0;
        };
        EXPECT_TRUE(commit(staging, dir / "out").ok);
        EXPECT_EQ(flushes, (std::vector<std::string>{"file system before", "directory after"}));
        EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
    }
}

TEST(CommitWithSync, TakesBackWhatCannotBeFlushed) {
    for (const Kind existing : {Kind::nothing, Kind::emptyDirectory, Kind::tree}) {
        for (const std::string failing : {"file system", "directory"}) {
            const TempDir dir;
            makeAt(dir / "out", existing);
            if (existing != Kind::nothing) fs::permissions(dir / "out", fs::perms{0710});
            const Tree before = treeAt(dir.path());
            const fs::path staging = stageWithSync(dir / "out");
            RenameFaults faults;
            faults.flush = [&](const std::string& what) { return what == failing ? -1 : 0; };
            EXPECT_EQ(commit(staging, dir / "out").error, "Cannot flush extracted files");
            EXPECT_EQ(treeAfterRemoval(dir, staging), before);
            const bool isKept = existing == Kind::nothing ||
                                fs::status(dir / "out").permissions() == fs::perms{0710};
            EXPECT_TRUE(isKept);
        }
    }
}

TEST(CommitWithSync, TakesBackWhatCannotBeFlushedWithoutExchange) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    const Tree before = treeAt(dir.path());
    const fs::path staging = stageWithSync(dir / "out");
    RenameFaults faults;
    refuseExchanges(faults);
    faults.flush = [&](const std::string& what) { return what == "directory" ? -1 : 0; };
    EXPECT_EQ(commit(staging, dir / "out").error, "Cannot flush extracted files");
    EXPECT_EQ(treeAfterRemoval(dir, staging), before);
}

/// Extracts as the module does: it has every name converted first.
fs::path stageNamedTree(const fs::path& destination, bool overwrite = true) {
    const fs::path staging = stageNewTree(destination, overwrite);
    Vesk_runtimeFsPath("new");
    return staging;
}

TEST(CommitRace, LeavesWhatIsAddedToTheTreeAtTheLastMoment) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    const fs::path staging = stageNamedTree(dir / "out");
    const fs::path added = directoryOf(staging) / "moved/added";
    RenameFaults faults;
    faults.beforeExchange = [&] {
        writeFile(added, "index");
        return 0;
    };
    EXPECT_TRUE(commit(staging, dir / "out").ok);
    EXPECT_EQ(treeAt(dir / "out"), (Tree{{"added", "index"}, {"new", "new"}}));
}

TEST(CommitRace, LeavesAloneWhatReplacedItsTree) {
    for (const Kind existing : {Kind::nothing, Kind::tree}) {
        const TempDir dir;
        makeAt(dir / "out", existing);
        const fs::path staging = stageWithSync(dir / "out");
        RenameFaults faults;
        faults.flush = [&](const std::string& what) {
            if (what != "directory") return 0;
            fs::rename(dir / "out", dir / "away");
            writeFile(dir / "out/foreign", "kept");
            return -1;
        };
        EXPECT_EQ(commit(staging, dir / "out").error, "Cannot flush extracted files");
        removeExtractionTree(staging);
        EXPECT_EQ(treeAt(dir / "out"), (Tree{{"foreign", "kept"}}));
        EXPECT_EQ(treeAt(dir / "away"), (Tree{{"new", "new"}}));
    }
}

TEST(CommitRace, LeavesAloneWhatReplacesItsTreeAtTheLastMoment) {
    for (const bool canExchange : {true, false}) {
        const TempDir dir;
        makeAt(dir / "out", Kind::tree);
        const fs::path staging = stageWithSync(dir / "out");
        RenameFaults faults;
        faults.flush = [&](const std::string& what) { return what == "directory" ? -1 : 0; };
        faults.beforeExchange = [&] {
            if (faults.exchangeCalls == 2) {
                fs::rename(dir / "out", dir / "away");
                writeFile(dir / "out/foreign", "kept");
            }
            return canExchange ? 0 : EINVAL;
        };
        EXPECT_EQ(commit(staging, dir / "out").error, "Cannot flush extracted files");
        removeExtractionTree(staging);
        EXPECT_EQ(treeAt(dir / "out"), (Tree{{"foreign", "kept"}}));
        EXPECT_EQ(treeAt(dir / "away"), (Tree{{"new", "new"}}));
    }
}

TEST(CommitWithSync, KeepsAndReportsAnOldTreeThatCannotBePutBack) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    const fs::path staging = stageWithSync(dir / "out");
    RenameFaults faults;
    faults.flush = [&](const std::string& what) { return what == "directory" ? -1 : 0; };
    faults.beforeExchange = [&] { return faults.exchangeCalls == 2 ? EIO : 0; };
    EXPECT_EQ(commit(staging, dir / "out").error, "Cannot flush extracted files");
    removeExtractionTree(staging);
    const auto left = takeLeftover();
    ASSERT_TRUE(left);
    EXPECT_TRUE(left->isOldTree);
    EXPECT_EQ(treeAt(left->path), (Tree{{"sub", "/"}, {"sub/old", "old"}}));
}

TEST(CommitWithoutExchange, ReportsAnOldTreeThatCouldNotBeMovedForDeletion) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    const fs::path staging = stageNewTree(dir / "out", true);
    RenameFaults faults;
    refuseExchanges(faults);
    faults.beforeRename = [](const std::string& from, const std::string&) {
        return from.starts_with(".out.vesk-replaced-") ? EIO : 0;
    };
    EXPECT_TRUE(commit(staging, dir / "out").ok);
    const auto left = takeLeftover();
    ASSERT_TRUE(left);
    EXPECT_FALSE(left->isOldTree);
    EXPECT_EQ(treeAt(left->path), (Tree{{"sub", "/"}, {"sub/old", "old"}}));
}

TEST(CommitRace, TakesBackATreeFromWhichAFileIsRemovedAtTheLastMoment) {
    for (const Kind existing : {Kind::nothing, Kind::tree}) {
        const TempDir dir;
        makeAt(dir / "out", existing);
        const Tree before = treeAt(dir.path());
        const fs::path staging = stageNamedTree(dir / "out");
        const fs::path file = directoryOf(staging) / "moved/new";
        RenameFaults faults;
        faults.beforeExchange = [&] { return fs::remove(file) ? 0 : 0; };
        faults.beforeRename = [&](const std::string&, const std::string&) {
            fs::remove(file);
            return 0;
        };
        expectMoveFailure(commit(staging, dir / "out"));
        EXPECT_EQ(treeAfterRemoval(dir, staging), before);
    }
}

TEST(CommitRace, DeletesATreeThatLacksAFileIfItsStagingDirectoryIsGone) {
    struct Row {
        Kind existing;
        bool overwrite;
    };
    for (const auto [existing, overwrite] :
         {Row{Kind::nothing, false}, Row{Kind::nothing, true}, Row{Kind::emptyDirectory, false}}) {
        const TempDir dir;
        makeAt(dir / "out", existing);
        const Tree before = treeAt(dir.path());
        const fs::path staging = stageNamedTree(dir / "out", overwrite);
        const fs::path directory = directoryOf(staging);
        RenameFaults faults;
        faults.beforeRename = [&](const std::string& from, const std::string&) {
            if (from == "moved") fs::remove(directory / "moved/new");
            if (from == "out") fs::remove(directory);
            return 0;
        };
        expectMoveFailure(commit(staging, dir / "out"));
        EXPECT_EQ(treeAfterRemoval(dir, staging), before);
    }
}

TEST(CommitWithSync, FlushesNothingUnlessTheModeAsksForIt) {
    const TempDir dir;
    removeExtractionTree(stageWithSync(dir / "other"));
    vesk::standin::Mode mode;
    vesk::runtime::archives::modeIsOverwrite(&mode);
    const fs::path staging = stageNewTree(dir / "out", false);
    RenameFaults faults;
    int flushes = 0;
    faults.flush = [&](const std::string&) { return flushes++; };
    EXPECT_TRUE(commit(staging, dir / "out").ok);
    EXPECT_EQ(flushes, 0);
}

}  // namespace
