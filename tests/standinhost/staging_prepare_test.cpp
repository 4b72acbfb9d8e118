// SPDX-License-Identifier: MIT
// Preparing an extraction: where the staging directory is, how it is named, what is refused.
#include <gtest/gtest.h>

#include <climits>
#include <fstream>

#include "tests/standinhost/staging_support.h"
#include "tests/support/mounts.h"
#include "tests/support/ordinary_user.h"

namespace {

namespace fs = std::filesystem;
using namespace vesk::testing;

TEST(Prepare, MakesAnEmptyTreeInADirectoryBesideTheDestinationForItsOwnerOnly) {
    for (const bool overwrite : {false, true}) {
        SCOPED_TRACE(overwrite);
        const TempDir dir;
        const StagingResult prepared = prepare(dir / "out", overwrite);
        ASSERT_TRUE(prepared.ok);
        EXPECT_EQ(prepared.error, "before");
        EXPECT_TRUE(fs::is_directory(fs::symlink_status(prepared.staging)));
        EXPECT_TRUE(fs::is_empty(prepared.staging));
        const fs::path directory = directoryOf(prepared.staging);
        EXPECT_EQ(directory.parent_path(), dir.path());
        EXPECT_EQ(fs::status(directory).permissions() & fs::perms{0777}, fs::perms::owner_all);
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
        const fs::path staging = prepare(dir / "out", row.overwrite).staging;
        const std::string name = directoryOf(staging).filename();
        EXPECT_EQ(name.substr(0, row.front.size()), row.front);
        EXPECT_EQ(name.size(), row.front.size() + 6);
    }
}

TEST(Prepare, MakesAnotherDirectoryEachTime) {
    const TempDir dir;
    const fs::path first = directoryOf(prepare(dir / "out", false).staging);
    EXPECT_NE(directoryOf(prepare(dir / "out", false).staging), first);
}

TEST(Prepare, RemovesWhatTheThreadLeftOpen) {
    const TempDir dir;
    const fs::path first = directoryOf(stageNewTree(dir / "made/out", false));
    prepare(dir / "other", false);
    EXPECT_FALSE(fs::exists(first));
    EXPECT_FALSE(fs::exists(dir / "made"));
}

/// Extracts through a link and `..`, below the normal form of the staging path. Returns what is
/// there.
std::string extractByNormalForm(const fs::path& destination) {
    const fs::path staging = stageNewTree(destination, false);
    const std::string file = readFile(staging.lexically_normal() / "new");
    return file + " " + commit(staging, destination).error;
}

TEST(Prepare, GivesAPathThatMeansTheSameInItsNormalForm) {
    const TempDir dir;
    fs::create_directories(dir / "else/where");
    fs::create_symlink("else/where", dir / "link");
    EXPECT_EQ(extractByNormalForm(dir / "link/../out"), "new before");
    EXPECT_EQ(treeAt(dir / "else"), (Tree{{"where", "/"}, {"out", "/"}, {"out/new", "new"}}));
}

TEST(Prepare, GivesSuchAPathAlsoWithoutPathsThroughDescriptors) {
    if (!canMount()) GTEST_SKIP() << "this machine lets nobody mount";
    const TempDir dir;
    fs::create_directories(dir / "else/where");
    fs::create_symlink("else/where", dir / "link");
    const std::string found = withMounts([&] {
        if (!mountMemory("/proc")) return std::string("cannot mount");
        const std::string path = prepare(dir / "link/../other", false).staging;
        return path.substr(0, path.find(".vesk")) + ", " + extractByNormalForm(dir / "link/../out");
    });
    EXPECT_EQ(found, (dir / "else/.other").native() + ", new before");
    EXPECT_EQ(treeAt(dir / "else"), (Tree{{"where", "/"}, {"out", "/"}, {"out/new", "new"}}));
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
            const std::string name = directoryOf(staging).filename();
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
    EXPECT_EQ(directoryOf(prepared.staging).parent_path(), dir / "a/b");
}

TEST(Prepare, RemovesTheParentsThatItMadeWhenItFails) {
    const TempDir dir;
    fs::create_directory(dir / "mine");
    fs::create_symlink("missing", dir / "mine/dangling");
    const Tree before = treeAt(dir.path());
    for (const std::string& destination :
         {"mine/a/b/" + std::string(256, 'n'), std::string("mine/a/../b/../dangling")}) {
        SCOPED_TRACE(destination);
        EXPECT_FALSE(prepare(dir / destination, true).ok);
        EXPECT_EQ(treeAt(dir.path()), before);
    }
}

TEST(Prepare, RefusesWhateverExistsUnlessItMayBeReplaced) {
    for (const KindRow& row : existingKinds()) {
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

TEST(Prepare, AllowsReplacingOnlyDirectoriesAndRegularFiles) {
    for (const KindRow& row : irreplaceableKinds) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        makeAt(dir / "out", row.kind);
        const Tree before = treeAt(dir.path());
        EXPECT_EQ(prepare(dir / "out", true).error, "Destination cannot be replaced");
        EXPECT_EQ(treeAt(dir.path()), before);
    }
    EXPECT_EQ(prepare("/dev/null", true).error, "Destination cannot be replaced");
}

TEST(Prepare, RefusesAMountPoint) {
    if (!canMount()) GTEST_SKIP() << "this machine lets nobody mount";
    const TempDir dir;
    const std::string errors = withMounts([&] {
        fs::create_directories(dir / "empty");
        fs::create_directories(dir / "below/mounted");
        if (!mountMemory(dir / "empty") || !bindMount(dir / "empty", dir / "below/mounted"))
            return std::string("cannot mount");
        writeFile(dir / "below/mounted/file", "kept");
        writeFile(dir / "bound", "bound");
        if (!bindMount(dir / "bound", dir / "bound")) return std::string("cannot mount");
        fs::remove(dir / "empty/file");
        return prepare(dir / "empty", false).error + "; " + prepare(dir / "empty", true).error +
               "; " + prepare(dir / "below/mounted", true).error + "; " +
               prepare(dir / "bound", true).error;
    });
    EXPECT_EQ(errors,
              "Destination cannot be replaced; Destination cannot be replaced; "
              "Destination cannot be replaced; Destination cannot be replaced");
}

TEST(Prepare, TreatsAnEmptyDirectoryLikeNothing) {
    for (const char* destination : {"out", "out/", "out//", "out/.", "out/../out", "link"}) {
        SCOPED_TRACE(destination);
        const TempDir dir;
        fs::create_directory(dir / "out");
        fs::create_symlink("out", dir / "link");
        const fs::path staging = stageNewTree(dir / destination, false);
        EXPECT_EQ(commit(staging, dir / destination).error, "before");
        EXPECT_EQ(treeAt(dir.path()), (Tree{{"link", "-> out"}, {"out", "/"}, {"out/new", "new"}}));
    }
}

TEST(Prepare, DoesNotFollowAnotherUsersLinkInAStickyDirectory) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can make another user's link";
    const TempDir dir;
    fs::permissions(dir.path(), fs::perms{01777});
    writeFile(dir / "victim/file", "kept");
    fs::create_symlink("victim", dir / "foreign");
    ASSERT_EQ(lchown((dir / "foreign").c_str(), 65533, 65533), 0);
    fs::create_symlink("foreign", dir / "mine");
    fs::create_directory(dir / "empty");
    fs::create_symlink("empty", dir / "foreign to empty");
    ASSERT_EQ(lchown((dir / "foreign to empty").c_str(), 65533, 65533), 0);
    for (const char* destination : {"foreign", "mine", "foreign/", "foreign to empty"}) {
        EXPECT_EQ(prepare(dir / destination, true).error, "Destination cannot be replaced");
        EXPECT_EQ(prepare(dir / destination, false).error, "Destination already exists");
    }
    fs::permissions(dir.path(), fs::perms{0777});
    EXPECT_TRUE(prepare(dir / "foreign", true).ok);
}

TEST(Prepare, LeavesTheOldTreeAsItIs) {
    for (const KindRow& row : replaceableKinds) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        makeAt(dir / "out", row.kind);
        Tree expected = treeAt(dir.path());

        const StagingResult prepared = prepare(dir / "out", true);
        ASSERT_TRUE(prepared.ok) << prepared.error;
        const std::string directory = directoryOf(prepared.staging).filename();
        expected[directory] = expected[directory + "/tree"] = "/";
        EXPECT_EQ(treeAt(dir.path()), expected);
    }
}

TEST(Prepare, StagesBesideWhatALinkPointsAt) {
    const TempDir dir;
    fs::create_directories(dir / "elsewhere/real");
    fs::create_symlink("elsewhere/real", dir / "out");
    fs::create_symlink("out", dir / "again");
    for (const char* destination : {"out", "again", "again/", "out/."}) {
        SCOPED_TRACE(destination);
        const StagingResult prepared = prepare(dir / destination, true);
        ASSERT_TRUE(prepared.ok);
        const fs::path directory = directoryOf(prepared.staging);
        EXPECT_EQ(directory.parent_path(), fs::canonical(dir / "elsewhere"));
        EXPECT_EQ(directory.filename().native().substr(0, 6), ".real.");
    }
}

/// Prepares staging under the umask. Returns how writing a file in it, and removing it, end.
std::string stageUnder(mode_t mask, const fs::path& destination) {
    umask(mask);
    const StagingResult prepared = prepare(destination, true);
    if (!prepared.ok) return prepared.error;
    const bool isWritten = static_cast<bool>(std::ofstream(prepared.staging / "new") << "new");
    vesk::runtime::archives::removeExtractionTree(prepared.staging);
    return isWritten ? "written" : "not written";
}

TEST(Prepare, LeavesNothingBehindUnderAnyUmask) {
    struct Row {
        mode_t mask;
        const char* ending;
    };
    for (const Row& row : {Row{0777, "not written"}, Row{0500, "not written"},
                           Row{0277, "not written"}, Row{0077, "written"}}) {
        SCOPED_TRACE(row.mask);
        const TempDir dir;
        fs::permissions(dir.path(), fs::perms{0777});
        EXPECT_EQ(asOrdinaryUser([&] { return stageUnder(row.mask, dir / "out"); }), row.ending);
        EXPECT_EQ(treeAt(dir.path()), Tree{});
    }
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
    std::string longPath = "out";
    while (longPath.size() < 4096)
        longPath += "/.";
    for (const std::string& destination :
         {std::string(256, 'a'), std::string("loop/out"), std::string("missing/.."), longPath}) {
        SCOPED_TRACE(destination);
        const StagingResult prepared = prepare(dir / destination, true);
        EXPECT_FALSE(prepared.ok);
        EXPECT_EQ(prepared.error, "Cannot inspect destination");
    }
}

TEST(Prepare, RefusesTheRootDirectory) {
    for (const char* destination : {"/", "//", "/.", "/../"}) {
        EXPECT_EQ(prepare(destination, true).error, "Destination cannot be replaced");
        EXPECT_EQ(prepare(destination, false).error, "Destination already exists");
    }
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

TEST(Prepare, AcceptsPathsAsLongAsTheSystemDoes) {
    const TempDir dir;
    std::string path = dir / "out";
    path.append(PATH_MAX - 1 - path.size(), '/');
    EXPECT_TRUE(prepare(path, true).ok);
    EXPECT_EQ(prepare(path + '/', true).error, "Cannot inspect destination");
}

TEST(Prepare, RefusesARootDirectoryThatIsNoMountPoint) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can have another root";
    const TempDir dir;
    writeFile(dir / "file", "kept");
    const auto become = [&] { return chroot(dir.path().c_str()) == 0 && chdir("/") == 0; };
    EXPECT_EQ(inChildThatBecame(become, [] { return prepare("/", true).error; }),
              "Destination cannot be replaced");
    EXPECT_EQ(treeAt(dir.path()), (Tree{{"file", "kept"}}));
}

TEST(Prepare, FollowsTheEffectiveUsersLinkInAStickyDirectory) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become another for a while";
    const TempDir dir;
    fs::permissions(dir.path(), fs::perms{01777});
    writeFile(dir / "kept/file", "kept");
    fs::create_symlink("kept", dir / "of root");
    fs::create_symlink("kept", dir / "own");
    for (const char* name : {"own", "kept"})
        ASSERT_EQ(lchown((dir / name).c_str(), 65534, 65534), 0);
    const auto become = [] { return setegid(65534) == 0 && seteuid(65534) == 0; };
    const std::string errors = inChildThatBecame(become, [&] {
        return prepare(dir / "own", true).error + "; " + prepare(dir / "of root", true).error;
    });
    EXPECT_EQ(errors, "before; Destination cannot be replaced");
}

TEST(Prepare, FollowsLinksWhereItCannotSeeItsOwnPath) {
    const TempDir dir;
    fs::permissions(dir.path(), fs::perms{0777});
    const std::string error = asOrdinaryUser([&] {
        writeFile(dir / "closed/place/sub/pointed/old", "old");
        fs::create_symlink("pointed", dir / "closed/place/sub/link");
        fs::current_path(dir / "closed/place");
        fs::permissions(dir / "closed", fs::perms{0});
        return commit(stageNewTree("sub/link", true), "sub/link").error;
    });
    EXPECT_EQ(error, "before");
    fs::permissions(dir / "closed", fs::perms{0755});
    EXPECT_EQ(readFile(dir / "closed/place/sub/pointed/new"), "new");
}

/// Changes to `directory`, extracts to `destination` there and returns what went wrong.
std::string extractRelative(const fs::path& directory, const std::string& destination) {
    fs::current_path(directory);
    const fs::path staging = stageNewTree(destination, true);
    const StagingResult committed = commit(staging, destination);
    return committed.ok ? "" : committed.error;
}

TEST(Prepare, AcceptsRelativeDestinations) {
    struct Row {
        const char* destination;
        Tree expected;
    };
    const Tree out = {{"here", "/"}, {"here/out", "/"}, {"here/out/new", "new"}};
    const Row rows[] = {
        {"out", out},
        {"./out", out},
        {"out/", out},
        {"out//", out},
        {"out/.", out},
        {"out/./", out},
        {"../here/out", out},
        {".", {{"here", "/"}, {"here/new", "new"}}},
        {"./", {{"here", "/"}, {"here/new", "new"}}},
        {"../here", {{"here", "/"}, {"here/new", "new"}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.destination);
        const TempDir dir;
        fs::create_directory(dir / "here");
        fs::permissions(dir.path(), fs::perms{0777});
        fs::permissions(dir / "here", fs::perms{0777});
        EXPECT_EQ(asOrdinaryUser([&] { return extractRelative(dir / "here", row.destination); }),
                  "");
        EXPECT_EQ(treeAt(dir.path()), row.expected);
    }
}

}  // namespace
