// SPDX-License-Identifier: MIT
// Preparing an extraction: where the staging directory is, how it is named, what is refused.
#include <gtest/gtest.h>

#include "tests/standinhost/staging_support.h"
#include "tests/support/ordinary_user.h"

namespace {

namespace fs = std::filesystem;
using vesk::testing::asOrdinaryUser;
using vesk::testing::commit;
using vesk::testing::existingKinds;
using vesk::testing::Kind;
using vesk::testing::KindRow;
using vesk::testing::makeAt;
using vesk::testing::prepare;
using vesk::testing::stageNewTree;
using vesk::testing::StagingResult;
using vesk::testing::TempDir;
using vesk::testing::Tree;
using vesk::testing::treeAt;
using vesk::testing::writeFile;

TEST(Prepare, MakesAnEmptyDirectoryBesideTheDestinationForItsOwnerOnly) {
    for (const bool overwrite : {false, true}) {
        SCOPED_TRACE(overwrite);
        const TempDir dir;
        const StagingResult prepared = prepare(dir / "out", overwrite);
        ASSERT_TRUE(prepared.ok);
        EXPECT_EQ(prepared.error, "before");
        EXPECT_EQ(prepared.staging.parent_path(), dir.path());
        EXPECT_TRUE(fs::is_directory(fs::symlink_status(prepared.staging)));
        EXPECT_TRUE(fs::is_empty(prepared.staging));
        EXPECT_EQ(fs::status(prepared.staging).permissions() & fs::perms{0777},
                  fs::perms::owner_all);
        EXPECT_FALSE(fs::exists(dir / "out"));
    }
}

TEST(Prepare, NamesTheDirectoryAfterTheDestinationAndItsPurpose) {
    struct Row {
        bool overwrite;
        std::string front;
    };
    const Row rows[] = {{false, ".out.vesk-unpacking-new-"},
                        {true, ".out.vesk-unpacking-replacing-"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.front);
        const TempDir dir;
        const std::string name = prepare(dir / "out", row.overwrite).staging.filename();
        EXPECT_EQ(name.substr(0, row.front.size()), row.front);
        EXPECT_EQ(name.size(), row.front.size() + 6);
    }
}

TEST(Prepare, MakesAnotherDirectoryEachTime) {
    const TempDir dir;
    EXPECT_NE(prepare(dir / "out", false).staging, prepare(dir / "out", false).staging);
}

TEST(Prepare, ShortensLongNamesBetweenCharacters) {
    std::string euros;
    for (int count = 0; count < 84; ++count)
        euros += "\xE2\x82\xAC";
    struct Row {
        const char* name;
        std::string destination;
        std::size_t keptBytes;
    };
    const Row rows[] = {
        {"ascii that fits", std::string(222, 'a'), 222},
        {"ascii", std::string(255, 'a'), 222},
        {"three-byte characters, cut where one ends", euros, 222},
        {"three-byte characters, cut after the first byte", "ab" + euros, 221},
        {"three-byte characters, cut after the second byte", "a" + euros, 220},
    };
    for (const Row& row : rows) {
        for (const bool overwrite : {false, true}) {
            SCOPED_TRACE(row.name);
            const TempDir dir;
            const fs::path staging = stageNewTree(dir / row.destination, overwrite);
            const std::string name = staging.filename();
            EXPECT_EQ(name.substr(0, name.find(".vesk-")),
                      "." + row.destination.substr(0, row.keptBytes));
            EXPECT_TRUE(commit(staging, dir / row.destination).ok);
            const Tree expected = {{row.destination, "/"}, {row.destination + "/new", "new"}};
            EXPECT_EQ(treeAt(dir.path()), expected);
        }
    }
}

TEST(Prepare, CreatesMissingParents) {
    const TempDir dir;
    const StagingResult prepared = prepare(dir / "a/b/out", false);
    ASSERT_TRUE(prepared.ok);
    EXPECT_EQ(prepared.staging.parent_path(), dir / "a/b");
}

TEST(Prepare, RefusesWhateverExistsUnlessItMayBeReplaced) {
    for (const KindRow& row : existingKinds) {
        for (const char* destination : {"out", "out/", "out//", "out/."}) {
            SCOPED_TRACE(std::string(row.name) + " as " + destination);
            const TempDir dir;
            makeAt(dir / "out", row.kind);
            const Tree before = treeAt(dir.path());

            const StagingResult prepared = prepare(dir / destination, false);
            EXPECT_FALSE(prepared.ok);
            EXPECT_EQ(prepared.error, "Destination already exists");
            EXPECT_EQ(prepared.staging, fs::path());
            EXPECT_EQ(treeAt(dir.path()), before);
        }
    }
}

TEST(Prepare, LeavesWhatIsToBeReplacedAsItIs) {
    for (const KindRow& row : existingKinds) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        makeAt(dir / "out", row.kind);
        Tree expected = treeAt(dir.path());

        const StagingResult prepared = prepare(dir / "out", true);
        ASSERT_TRUE(prepared.ok) << prepared.error;
        expected[prepared.staging.filename()] = "/";
        EXPECT_EQ(treeAt(dir.path()), expected);
    }
}

TEST(Prepare, StagesBesideWhatALinkPointsAt) {
    const TempDir dir;
    fs::create_directories(dir / "elsewhere/real");
    fs::create_symlink("elsewhere/real", dir / "out");
    const StagingResult prepared = prepare(dir / "out", true);
    ASSERT_TRUE(prepared.ok);
    EXPECT_EQ(prepared.staging.parent_path(), fs::canonical(dir / "elsewhere"));
    EXPECT_EQ(prepared.staging.filename().native().substr(0, 6), ".real.");
}

TEST(Prepare, ReportsParentsThatCannotBeCreated) {
    const TempDir dir;
    writeFile(dir / "file", "");
    fs::create_symlink("missing", dir / "dangling");
    for (const char* destination : {"file/out", "file/a/out", "dangling/out"}) {
        for (const bool overwrite : {false, true}) {
            SCOPED_TRACE(destination);
            const StagingResult prepared = prepare(dir / destination, overwrite);
            EXPECT_FALSE(prepared.ok);
            EXPECT_EQ(prepared.error, "Cannot create destination parent directory");
        }
    }
}

TEST(Prepare, ReportsADestinationThatCannotBeInspected) {
    const TempDir dir;
    fs::create_symlink("loop", dir / "loop");
    for (const std::string& destination :
         {std::string(256, 'a'), std::string("loop/out"), std::string("missing/..")}) {
        SCOPED_TRACE(destination);
        const StagingResult prepared = prepare(dir / destination, true);
        EXPECT_FALSE(prepared.ok);
        EXPECT_EQ(prepared.error, "Cannot inspect destination");
    }
}

TEST(Prepare, ReportsTheRootDirectoryWhichHasNoSibling) {
    const StagingResult prepared = prepare("/", true);
    EXPECT_FALSE(prepared.ok);
    EXPECT_EQ(prepared.error, "Cannot create staging directory");
    vesk::runtime::archives::removeExtractionTree(prepared.staging);
}

TEST(Prepare, ReportsWhatPermissionsForbid) {
    struct Row {
        const char* name;
        fs::perms permissions;
        const char* destination;
        const char* error;
    };
    const Row rows[] = {
        {"closed parent", fs::perms{0444}, "out", "Cannot inspect destination"},
        {"read-only parent", fs::perms{0555}, "out", "Cannot create staging directory"},
        {"read-only grandparent", fs::perms{0555}, "new/out",
         "Cannot create destination parent directory"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        fs::create_directory(dir / "parent");
        fs::permissions(dir.path(), fs::perms{0777});
        fs::permissions(dir / "parent", row.permissions);
        EXPECT_EQ(
            asOrdinaryUser([&] { return prepare(dir / "parent" / row.destination, false).error; }),
            row.error);
    }
}

/// Goes into `directory`, extracts to `destination` there and tells what went wrong.
std::string extractRelative(const fs::path& directory, const std::string& destination) {
    fs::current_path(directory);
    const fs::path staging = stageNewTree(destination, true);
    const StagingResult committed = commit(staging, destination);
    return committed.ok ? "" : committed.error;
}

TEST(Prepare, TakesRelativeDestinations) {
    struct Row {
        const char* destination;
        Tree expected;
    };
    const Tree out = {{"work", "/"}, {"work/out", "/"}, {"work/out/new", "new"}};
    const Row rows[] = {
        {"out", out},
        {"./out", out},
        {"out/", out},
        {"out//", out},
        {"out/.", out},
        {"out/./", out},
        {"../work/out", out},
        {".", {{"work", "/"}, {"work/new", "new"}}},
        {"./", {{"work", "/"}, {"work/new", "new"}}},
        {"../work", {{"work", "/"}, {"work/new", "new"}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.destination);
        const TempDir dir;
        fs::create_directory(dir / "work");
        fs::permissions(dir.path(), fs::perms{0777});
        fs::permissions(dir / "work", fs::perms{0777});
        EXPECT_EQ(asOrdinaryUser([&] { return extractRelative(dir / "work", row.destination); }),
                  "");
        EXPECT_EQ(treeAt(dir.path()), row.expected);
    }
}

}  // namespace
