// SPDX-License-Identifier: MIT
// Committing an extraction and removing a failed one: what is at the destination afterwards, with
// which permissions, and what is kept.
#include <gtest/gtest.h>

#include <cstdio>
#include <thread>

#include "standinhost/standin_host.h"
#include "tests/standinhost/staging_support.h"
#include "tests/support/ordinary_user.h"

namespace {

namespace fs = std::filesystem;
using vesk::runtime::archives::removeExtractionTree;
using vesk::standin::abandonStaging;
using vesk::testing::asOrdinaryUser;
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

const Tree onlyTheNewTree = {{"out", "/"}, {"out/new", "new"}};

void expectFailure(const StagingResult& result, const char* error) {
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.error, error);
}

TEST(Commit, MovesTheTreeToWhereNothingWas) {
    for (const bool overwrite : {false, true}) {
        for (const char* destination : {"out", "out/"}) {
            SCOPED_TRACE(destination);
            const TempDir dir;
            const fs::path staging = stageNewTree(dir / destination, overwrite);
            const StagingResult committed = commit(staging, dir / destination);
            EXPECT_TRUE(committed.ok);
            EXPECT_EQ(committed.error, "before");
            EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
        }
    }
}

TEST(Commit, MovesAnEmptyTree) {
    const TempDir dir;
    const StagingResult prepared = vesk::testing::prepare(dir / "out", false);
    EXPECT_TRUE(commit(prepared.staging, dir / "out").ok);
    EXPECT_EQ(treeAt(dir.path()), (Tree{{"out", "/"}}));
}

TEST(Commit, ReplacesWhateverExisted) {
    for (const KindRow& row : existingKinds) {
        for (const char* destination : {"out", "out/"}) {
            SCOPED_TRACE(std::string(row.name) + " as " + destination);
            const TempDir dir;
            makeAt(dir / "out", row.kind);
            const fs::path staging = stageNewTree(dir / destination, true);
            const StagingResult committed = commit(staging, dir / destination);
            EXPECT_TRUE(committed.ok);
            EXPECT_EQ(committed.error, "before");
            EXPECT_EQ(treeAt(dir.path()), treeAfterReplacing(row.kind));
        }
    }
}

TEST(Commit, KeepsWhatAppearedMeanwhileUnlessItMayBeReplaced) {
    for (const KindRow& row : existingKinds) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        const fs::path staging = stageNewTree(dir / "out", false);
        makeAt(dir / "out", row.kind);
        const Tree before = treeAt(dir.path());

        expectFailure(commit(staging, dir / "out"), "Destination already exists");
        EXPECT_EQ(treeAt(dir.path()), before);
        removeExtractionTree(staging);
        EXPECT_FALSE(fs::exists(staging));
    }
}

TEST(Commit, ReplacesWhatAppearedMeanwhileIfItMay) {
    const TempDir dir;
    const fs::path staging = stageNewTree(dir / "out", true);
    makeAt(dir / "out", Kind::tree);
    EXPECT_TRUE(commit(staging, dir / "out").ok);
    EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
}

TEST(Commit, MovesTheTreeWhenWhatItReplacesHasGone) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    const fs::path staging = stageNewTree(dir / "out", true);
    fs::remove_all(dir / "out");
    EXPECT_TRUE(commit(staging, dir / "out").ok);
    EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
}

TEST(Commit, IsNotMisledByMarksInTheDestinationsName) {
    const TempDir dir;
    const std::string name = "x.vesk-unpacking-replacing-abcdef";
    const fs::path staging = stageNewTree(dir / name, false);
    writeFile(dir / name, "old");
    expectFailure(commit(staging, dir / name), "Destination already exists");
}

TEST(Commit, DoesNotFollowLinksInTheOldTree) {
    const TempDir dir;
    writeFile(dir / "kept/file", "kept");
    fs::create_directory(dir / "out");
    fs::create_directory_symlink("../kept", dir / "out/link");
    EXPECT_TRUE(commit(stageNewTree(dir / "out", true), dir / "out").ok);
    const Tree expected = {{"kept", "/"}, {"kept/file", "kept"}, {"out", "/"}, {"out/new", "new"}};
    EXPECT_EQ(treeAt(dir.path()), expected);
}

/// Extracts to `destination` under the umask and returns its permissions in octal.
std::string permissionsUnder(mode_t mask, const fs::path& destination) {
    umask(mask);
    const StagingResult prepared = vesk::testing::prepare(destination, true);
    const StagingResult committed = commit(prepared.staging, destination);
    if (!committed.ok) return committed.error;
    char octal[8];
    std::snprintf(octal, sizeof octal, "%o",
                  static_cast<unsigned>(fs::status(destination).permissions()));
    return octal;
}

TEST(Commit, GivesTheDestinationThePermissionsOfAnyNewDirectory) {
    struct Row {
        mode_t mask;
        const char* permissions;
    };
    const Row rows[] = {{022, "755"}, {002, "775"}, {027, "750"}, {077, "700"}, {0, "777"}};
    for (const Row& row : rows) {
        for (const Kind existing : {Kind::nothing, Kind::tree}) {
            SCOPED_TRACE(row.permissions);
            const TempDir dir;
            fs::create_directory(dir / "parent");
            fs::permissions(dir.path(), fs::perms{0777});
            fs::permissions(dir / "parent", fs::perms{0777});
            makeAt(dir / "parent/out", existing);
            EXPECT_EQ(
                asOrdinaryUser([&] { return permissionsUnder(row.mask, dir / "parent/out"); }),
                row.permissions);
        }
    }
}

TEST(Commit, LeavesNothingBesideTheDestination) {
    const TempDir dir;
    EXPECT_TRUE(commit(stageNewTree(dir / "out", false), dir / "out").ok);
    EXPECT_TRUE(commit(stageNewTree(dir / "out", true), dir / "out").ok);
    EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
}

TEST(Commit, InheritsTheGroupBitOfTheParent) {
    const TempDir dir;
    fs::permissions(dir.path(), fs::perms::set_gid, fs::perm_options::add);
    EXPECT_TRUE(commit(stageNewTree(dir / "out", false), dir / "out").ok);
    EXPECT_NE(fs::status(dir / "out").permissions() & fs::perms::set_gid, fs::perms::none);
}

TEST(Commit, ReportsAStagingDirectoryThatHasGoneAndKeepsTheOldTree) {
    for (const bool overwrite : {false, true}) {
        SCOPED_TRACE(overwrite);
        const TempDir dir;
        if (overwrite) makeAt(dir / "out", Kind::tree);
        const Tree before = treeAt(dir.path());
        const fs::path staging = stageNewTree(dir / "out", overwrite);
        fs::remove_all(staging);
        expectFailure(commit(staging, dir / "out"), "Cannot move extracted files to destination");
        EXPECT_EQ(treeAt(dir.path()), before);
    }
}

TEST(Commit, KeepsTheOldTreeWhereItsParentCannotBeChanged) {
    const TempDir dir;
    fs::permissions(dir.path(), fs::perms{0777});
    const std::string error = asOrdinaryUser([&] {
        makeAt(dir / "parent/out", Kind::tree);
        const fs::path staging = stageNewTree(dir / "parent/out", true);
        fs::permissions(dir / "parent", fs::perms{0555});
        return commit(staging, dir / "parent/out").error;
    });
    EXPECT_EQ(error, "Cannot move extracted files to destination");
    EXPECT_TRUE(fs::exists(dir / "parent/out/sub/old"));
}

TEST(Commit, SucceedsWhenTheOldTreeCannotBeDeletedCompletely) {
    const TempDir dir;
    fs::permissions(dir.path(), fs::perms{0777});
    const std::string staging = asOrdinaryUser([&] {
        makeAt(dir / "parent/out", Kind::tree);
        fs::permissions(dir / "parent/out/sub", fs::perms{0555});
        const fs::path path = stageNewTree(dir / "parent/out", true);
        const StagingResult committed = commit(path, dir / "parent/out");
        return committed.ok ? path.filename().native() : committed.error;
    });
    EXPECT_TRUE(fs::exists(dir / "parent" / staging / "sub/old")) << staging;
    EXPECT_EQ(treeAt(dir / "parent/out"), (Tree{{"new", "new"}}));
}

TEST(Commit, ReplacesATreeWithoutWritePermission) {
    const TempDir dir;
    fs::permissions(dir.path(), fs::perms{0777});
    const std::string error = asOrdinaryUser([&] {
        fs::create_directories(dir / "parent/out");
        fs::permissions(dir / "parent/out", fs::perms{0555});
        const fs::path staging = stageNewTree(dir / "parent/out", true);
        return commit(staging, dir / "parent/out").error;
    });
    EXPECT_EQ(error, "before");
    EXPECT_EQ(treeAt(dir / "parent"), onlyTheNewTree);
}

TEST(RemoveExtractionTree, DeletesTheWholeTreeAndNothingThatItsLinksPointAt) {
    const TempDir dir;
    writeFile(dir / "kept/file", "kept");
    const fs::path staging = stageNewTree(dir / "out", false);
    writeFile(staging / "a/b/c", "c");
    fs::create_directory_symlink(dir / "kept", staging / "link");
    removeExtractionTree(staging);
    EXPECT_EQ(treeAt(dir.path()), (Tree{{"kept", "/"}, {"kept/file", "kept"}}));
}

TEST(RemoveExtractionTree, TakesAPathWhereNothingIs) {
    const TempDir dir;
    removeExtractionTree(dir / "missing");
    removeExtractionTree({});
    EXPECT_EQ(treeAt(dir.path()), Tree{});
}

TEST(AbandonStaging, RemovesWhatWasPreparedAndNeitherCommittedNorRemoved) {
    const TempDir dir;
    stageNewTree(dir / "out", false);
    abandonStaging();
    EXPECT_EQ(treeAt(dir.path()), Tree{});
}

TEST(AbandonStaging, RemovesWhatCouldNotBeCommitted) {
    const TempDir dir;
    const fs::path staging = stageNewTree(dir / "out", false);
    writeFile(dir / "out", "old");
    expectFailure(commit(staging, dir / "out"), "Destination already exists");
    abandonStaging();
    EXPECT_EQ(treeAt(dir.path()), (Tree{{"out", "old"}}));
}

TEST(AbandonStaging, LeavesAloneWhatAppearedInPlaceOfACommittedOrRemovedDirectory) {
    const TempDir dir;
    const fs::path committed = stageNewTree(dir / "out", false);
    EXPECT_TRUE(commit(committed, dir / "out").ok);
    fs::create_directory(committed);
    abandonStaging();
    EXPECT_TRUE(fs::exists(committed));

    const fs::path removed = stageNewTree(dir / "another", false);
    removeExtractionTree(removed);
    fs::create_directory(removed);
    abandonStaging();
    EXPECT_TRUE(fs::exists(removed));
}

TEST(AbandonStaging, LeavesAloneWhatAnotherThreadPrepared) {
    const TempDir dir;
    const fs::path staging = stageNewTree(dir / "out", false);
    std::thread other([] { abandonStaging(); });
    other.join();
    EXPECT_TRUE(fs::exists(staging));
    removeExtractionTree(staging);
}

}  // namespace
