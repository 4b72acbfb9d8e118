// SPDX-License-Identifier: MIT
// Actions of others between two steps of the stand-in, each at the worst moment. They are noticed
// or harmless, and nothing that belongs to others is mistaken for its own.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "standinhost/standin_host.h"
#include "tests/standinhost/in_between.h"
#include "tests/standinhost/rename_faults.h"
#include "tests/standinhost/staging_support.h"
#include "tests/support/mounts.h"
#include "tests/support/ordinary_user.h"

namespace {

namespace fs = std::filesystem;
using vesk::runtime::archives::removeExtractionTree;
using vesk::standin::takeLeftover;
using namespace vesk::testing;

TEST(Between, LeavesAloneWhatReplacedTheStagingDirectory) {
    struct Row {
        const char* name;
        mode_t mode;
        bool isLink;
    };
    const Row rows[] = {{"directory", 0755, false},
                        {"directory for its owner only", 0700, false},
                        {"directory for readers", 0500, false},
                        {"link", 0755, true}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        writeFile(dir / "kept/file", "kept");
        writeFile(dir / "kept/sub/file", "kept");
        chmod((dir / "kept").c_str(), row.mode);
        fs::path staging;
        InBetween between;
        between.afterMaking = [&](const std::string& name) {
            staging = dir / name;
            fs::remove(staging);
            if (row.isLink) return fs::create_directory_symlink("kept", staging);
            fs::rename(dir / "kept", staging);
        };
        EXPECT_EQ(prepare(dir / "out", true).error, "Cannot create staging directory");
        const fs::path kept = row.isLink ? dir / "kept" : staging;
        EXPECT_EQ(treeAt(kept), (Tree{{"file", "kept"}, {"sub", "/"}, {"sub/file", "kept"}}));
        EXPECT_EQ(fs::status(kept).permissions(), fs::perms{row.mode});
        const auto left = takeLeftover();
        EXPECT_TRUE(!left || row.isLink) << left->path;
    }
}

TEST(Between, DoesNotStageThroughALinkThatReplacedItsDirectory) {
    const TempDir dir;
    fs::create_directory(dir / "empty");
    fs::permissions(dir / "empty", fs::perms{0755});
    InBetween between;
    between.afterMaking = [&](const std::string& name) {
        if (name == "tree") return;
        fs::remove(dir / name);
        fs::create_directory_symlink("empty", dir / name);
    };
    EXPECT_EQ(prepare(dir / "out", true).error, "Cannot create staging directory");
    EXPECT_TRUE(fs::is_empty(dir / "empty"));
    EXPECT_EQ(fs::status(dir / "empty").permissions(), fs::perms{0755});
}

/// Replaces a directory that was just made by one of another user.
void replaceByAnothers(const fs::path& directory) {
    fs::remove(directory);
    fs::create_directory(directory);
    fs::permissions(directory, fs::perms{0777});
    if (chown(directory.c_str(), 65533, static_cast<gid_t>(-1)) != 0)
        throw std::runtime_error("chown failed");
}

TEST(Between, DoesNotStageInADirectoryOfAnotherUser) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can make another user's directory";
    for (const bool isTreeReplaced : {false, true}) {
        const TempDir dir;
        fs::path staging;
        InBetween between;
        between.afterMaking = [&](const std::string& name) {
            if (name != "tree") replaceByAnothers(staging = dir / name);
            if (name == "tree" && isTreeReplaced) replaceByAnothers(staging / name);
        };
        EXPECT_EQ(prepare(dir / "out", true).error, "Cannot create staging directory");
        EXPECT_EQ(treeAt(dir.path()), Tree{});
    }
}

TEST(Between, DoesNotStageInATreeThatSomebodyElseMade) {
    const TempDir dir;
    InBetween between;
    between.isTaken = [](const std::string& name) { return name == "tree"; };
    EXPECT_EQ(prepare(dir / "out", true).error, "Cannot create staging directory");
    EXPECT_EQ(treeAt(dir.path()), Tree{});
}

TEST(Between, TriesAHundredNames) {
    for (const int taken : {99, 100}) {
        const TempDir dir;
        InBetween between;
        int names = 0;
        between.isTaken = [&](const std::string&) { return names++ < taken; };
        EXPECT_EQ(prepare(dir / "out", true).ok, taken == 99);
        vesk::standin::abandonStaging();
        EXPECT_EQ(treeAt(dir.path()).size(), static_cast<std::size_t>(taken));
    }
}

TEST(Between, KeepsADestinationWhoseLinkVanishedBeforeItWasRead) {
    const TempDir dir;
    writeFile(dir / "parent/pointed/old", "old");
    fs::create_directory_symlink("pointed", dir / "parent/out");
    InBetween between;
    between.beforeReading = [&] { fs::remove(dir / "parent/out"); };
    const StagingResult prepared = prepare(dir / "parent/out", true);
    ASSERT_TRUE(prepared.ok);
    EXPECT_EQ(directoryOf(prepared.staging).parent_path(), dir / "parent");
}

TEST(Between, DetectsAMountPointThatTheSystemDoesNotReport) {
    if (!canMount()) GTEST_SKIP() << "this machine lets nobody mount";
    const TempDir dir;
    fs::create_directory(dir / "out");
    const std::string error = withMounts([&] {
        InBetween between;
        between.tellsMounts = false;
        return mountMemory(dir / "out") ? prepare(dir / "out", true).error : "cannot mount";
    });
    EXPECT_EQ(error, "Destination cannot be replaced");
}

TEST(Between, RemovesTheStagingDirectoryOnlyFromItsOwnParent) {
    const TempDir dir;
    fs::create_directories(dir / "kept/renamed");
    fs::create_directory(dir / "elsewhere");
    const fs::path staging = stageNewTree(dir / "out", false);
    fs::rename(directoryOf(staging), dir / "elsewhere/renamed");
    InBetween between;
    between.beforeRemoving = [&](const std::string& name) {
        if (!name.ends_with("renamed")) return;
        fs::rename(dir / "elsewhere", dir / "gone");
        fs::create_directory_symlink("kept", dir / "elsewhere");
        between.beforeRemoving = nullptr;
    };
    removeExtractionTree(staging);
    EXPECT_TRUE(fs::exists(dir / "kept/renamed"));
    EXPECT_FALSE(fs::exists(dir / "gone/renamed"));
}

TEST(Between, RemovesAStagingDirectoryThatIsMovedRightBefore) {
    const TempDir dir;
    fs::create_directory(dir / "elsewhere");
    const fs::path staging = stageNewTree(dir / "out", false);
    const fs::path directory = directoryOf(staging);
    InBetween between;
    between.beforeRemoving = [&](const std::string& name) {
        if (name != directory.filename()) return;
        fs::rename(directory, dir / "elsewhere/moved");
        between.beforeRemoving = nullptr;
    };
    removeExtractionTree(staging);
    EXPECT_EQ(treeAt(dir.path()), (Tree{{"elsewhere", "/"}}));
    EXPECT_FALSE(takeLeftover());
}

TEST(Between, RemovesMadeParentsOnlyFromTheirOwnParents) {
    const TempDir dir;
    fs::create_directories(dir / "kept/b");
    const fs::path staging = stageNewTree(dir / "a/b/out", false);
    InBetween between;
    between.beforeRemoving = [&](const std::string& name) {
        if (fs::path(name).filename() != "b") return;
        fs::rename(dir / "a", dir / "gone");
        fs::create_directory_symlink("kept", dir / "a");
        between.beforeRemoving = nullptr;
    };
    removeExtractionTree(staging);
    EXPECT_EQ(treeAt(dir.path()),
              (Tree{{"a", "-> kept"}, {"gone", "/"}, {"kept", "/"}, {"kept/b", "/"}}));
}

TEST(Between, ChangesNoPermissionsThroughALinkThatReplacedADirectory) {
    const TempDir dir;
    fs::create_directory(dir / "out");
    writeFile(dir / "kept/file", "kept");
    fs::permissions(dir / "kept", fs::perms{0700});
    vesk::standin::Mode mode{false, true};
    vesk::runtime::archives::modeIsOverwrite(&mode);
    const fs::path staging = stageNewTree(dir / "out", false);
    RenameFaults faults;
    faults.flush = [](const std::string& what) { return what == "directory" ? -1 : 0; };
    InBetween between;
    between.afterMaking = [&](const std::string&) {
        fs::remove(dir / "out");
        fs::create_directory_symlink("kept", dir / "out");
    };
    EXPECT_EQ(commit(staging, dir / "out").error, "Cannot flush extracted files");
    removeExtractionTree(staging);
    EXPECT_EQ(fs::status(dir / "kept").permissions(), fs::perms{0700});
    EXPECT_EQ(treeAt(dir.path()), (Tree{{"kept", "/"}, {"kept/file", "kept"}, {"out", "-> kept"}}));
}

}  // namespace
