// SPDX-License-Identifier: MIT
// Committing an extraction and removing a failed one: what is at the destination afterwards, with
// which permissions, and what is kept.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <cstdio>
#include <thread>

#include "standinhost/standin_host.h"
#include "tests/standinhost/allocation_record.h"
#include "tests/standinhost/in_between.h"
#include "tests/standinhost/staging_support.h"
#include "tests/support/memory_dir.h"
#include "tests/support/mounts.h"
#include "tests/support/open_files.h"
#include "tests/support/ordinary_user.h"

namespace {

namespace fs = std::filesystem;
using vesk::runtime::archives::removeExtractionTree;
using vesk::standin::abandonStaging;
using vesk::standin::takeLeftover;
using namespace vesk::testing;

const Tree onlyTheNewTree = {{"out", "/"}, {"out/new", "new"}};

void expectFailure(const StagingResult& result, const char* error) {
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.error, error);
}

TEST(Commit, MovesTheTreeToAnUnusedPath) {
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

TEST(Commit, ReplacesWhatMayBeReplaced) {
    for (const KindRow& row : replaceableKinds) {
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
    for (const KindRow& row : existingKinds()) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        const fs::path staging = stageNewTree(dir / "out", false);
        const bool isLink = row.kind == Kind::linkToTree || row.kind == Kind::linkToFile ||
                            row.kind == Kind::linkToFifo;
        makeAt(dir / "out", row.kind);

        // A link that appeared leads to another place than the one for which staging was prepared.
        expectFailure(
            commit(staging, dir / "out"),
            isLink ? "Cannot move extracted files to destination" : "Destination already exists");
        removeExtractionTree(staging);
        const TempDir same;
        makeAt(same / "out", row.kind);
        EXPECT_EQ(treeAt(dir.path()), treeAt(same.path()));
    }
}

TEST(Commit, ReplacesOnlyDirectoriesAndRegularFiles) {
    for (const KindRow& row : irreplaceableKinds) {
        if (row.kind == Kind::linkToFifo) continue;  // leads elsewhere
        SCOPED_TRACE(row.name);
        const TempDir dir;
        const fs::path staging = stageNewTree(dir / "out", true);
        makeAt(dir / "out", row.kind);
        expectFailure(commit(staging, dir / "out"), "Destination cannot be replaced");
        removeExtractionTree(staging);
        const TempDir same;
        makeAt(same / "out", row.kind);
        EXPECT_EQ(treeAt(dir.path()), treeAt(same.path()));
    }
}

TEST(Commit, ReplacesAnEmptyDirectoryThatAppearedMeanwhile) {
    const TempDir dir;
    const fs::path staging = stageNewTree(dir / "out", false);
    fs::create_directory(dir / "out");
    EXPECT_TRUE(commit(staging, dir / "out").ok);
    EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
}

TEST(Commit, KeepsAnEmptyDirectoryThatWasFilledMeanwhile) {
    const TempDir dir;
    fs::create_directory(dir / "out");
    const fs::path staging = stageNewTree(dir / "out", false);
    writeFile(dir / "out/file", "kept");
    expectFailure(commit(staging, dir / "out"), "Destination already exists");
    removeExtractionTree(staging);
    EXPECT_EQ(treeAt(dir.path()), (Tree{{"out", "/"}, {"out/file", "kept"}}));
}

TEST(Commit, ReplacesWhatAppearedMeanwhileIfItMay) {
    const TempDir dir;
    const fs::path staging = stageNewTree(dir / "out", true);
    makeAt(dir / "out", Kind::tree);
    EXPECT_TRUE(commit(staging, dir / "out").ok);
    EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
}

TEST(Commit, MovesTheTreeWhenTheOldOneHasVanished) {
    const TempDir dir;
    makeAt(dir / "out", Kind::tree);
    const fs::path staging = stageNewTree(dir / "out", true);
    fs::remove_all(dir / "out");
    EXPECT_TRUE(commit(staging, dir / "out").ok);
    EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
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
        for (const Kind existing : {Kind::nothing, Kind::file}) {
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

TEST(Commit, KeepsThePermissionsOfTheDirectoryThatItReplaces) {
    struct Row {
        mode_t mode;
        const char* permissions;
    };
    const Row rows[] = {{0700, "700"}, {0777, "777"},   {0755, "755"},
                        {0500, "500"}, {03770, "3770"}, {0300, "300"}};
    for (const Row& row : rows) {
        for (const Kind existing : {Kind::emptyDirectory, Kind::tree}) {
            SCOPED_TRACE(row.permissions);
            const TempDir dir;
            fs::permissions(dir.path(), fs::perms{0777});
            const std::string permissions = asOrdinaryUser([&] {
                fs::create_directory(dir / "parent");
                makeAt(dir / "parent/out", existing);
                chmod((dir / "parent/out").c_str(), row.mode);
                return permissionsUnder(022, dir / "parent/out");
            });
            EXPECT_EQ(permissions, row.permissions);
            EXPECT_EQ(treeAt(dir.path()), (Tree{{"parent", "/"}, {"parent/out", "/"}}));
        }
    }
}

TEST(Commit, KeepsTheOwnerAndGroupOfTheDirectoryThatItReplacesAsTheSuperuser) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can give files away";
    struct Row {
        Kind existing;
        uid_t user;
        gid_t group;
    };
    for (const Row& row : {Row{Kind::emptyDirectory, 65533, 65532}, Row{Kind::tree, 65533, 65532},
                           Row{Kind::tree, 65533, 0}, Row{Kind::tree, 0, 65532}}) {
        const TempDir dir;
        makeAt(dir / "out", row.existing);
        ASSERT_EQ(chown((dir / "out").c_str(), row.user, row.group), 0);
        ASSERT_EQ(chmod((dir / "out").c_str(), 06711), 0);
        EXPECT_TRUE(commit(stageNewTree(dir / "out", true), dir / "out").ok);
        struct stat status {};
        ASSERT_EQ(stat((dir / "out").c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, row.user);
        EXPECT_EQ(status.st_gid, row.group);
        EXPECT_EQ(status.st_mode & 07777, 06711U);
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

TEST(Commit, ReportsAVanishedStagingDirectoryAndKeepsTheOldTree) {
    for (const bool overwrite : {false, true}) {
        SCOPED_TRACE(overwrite);
        const TempDir dir;
        if (overwrite) makeAt(dir / "out", Kind::tree);
        const Tree before = treeAt(dir.path());
        const fs::path staging = stageNewTree(dir / "out", overwrite);
        fs::remove_all(directoryOf(staging));
        expectFailure(commit(staging, dir / "out"), "Cannot move extracted files to destination");
        removeExtractionTree(staging);
        EXPECT_EQ(treeAt(dir.path()), before);
        EXPECT_FALSE(takeLeftover());
    }
}

TEST(Commit, RefusesALinkInPlaceOfTheStagingDirectory) {
    const TempDir dir;
    const fs::path staging = stageNewTree(dir / "out", false);
    const fs::path directory = directoryOf(staging);
    fs::rename(directory, dir / "renamed");
    fs::create_directory_symlink("renamed", directory);
    expectFailure(commit(staging, dir / "out"), "Cannot move extracted files to destination");
    removeExtractionTree(staging);
    EXPECT_EQ(treeAt(dir.path()), (Tree{{directory.filename(), "-> renamed"}}));
}

TEST(Commit, NoticesAnotherFileSystemWithTheSameNumbersForItsFiles) {
    if (!canMount()) GTEST_SKIP() << "this machine lets nobody mount";
    const TempDir dir;
    fs::create_directory(dir / "parent");
    const std::string error = withMounts([&] {
        if (!mountMemory(dir / "parent")) return std::string("cannot mount");
        const fs::path staging = stageNewTree(dir / "parent/out", false);
        if (!mountMemory(dir / "parent")) return std::string("cannot mount");
        return commit(staging, dir / "parent/out").error;
    });
    EXPECT_EQ(error, "Cannot move extracted files to destination");
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

/// Replaces a tree and returns what was left of it.
std::string leftOverAfterReplacing(const fs::path& destination) {
    const StagingResult committed = commit(stageNewTree(destination, true), destination);
    if (!committed.ok) return committed.error;
    const auto left = takeLeftover();
    if (!left) return "nothing";
    const char* const what = left->isOldTree    ? "the old tree in "
                             : left->holdsMount ? "mounts in "
                                                : "a rest in ";
    return what + left->path.native();
}

TEST(Commit, SucceedsAndReportsTheRestOfAnOldTree) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can make another user's files";
    const TempDir dir;
    fs::permissions(dir.path(), fs::perms{0777});
    writeFile(dir / "parent/out/foreign/old", "old");
    writeFile(dir / "parent/out/own", "old");
    for (const char* name : {"parent", "parent/out"})
        ASSERT_EQ(chown((dir / name).c_str(), 65534, 65534), 0);
    const std::string left =
        asOrdinaryUser([&] { return leftOverAfterReplacing(dir / "parent/out"); });
    const std::string expected =
        "a rest in " + (dir / "parent/.out.vesk-unpacking-replacing-").native();
    EXPECT_EQ(left.substr(0, left.size() - 6), expected);
    const fs::path rest = left.substr(std::string("a rest in ").size());
    EXPECT_EQ(treeAt(rest),
              (Tree{{"moved", "/"}, {"moved/foreign", "/"}, {"moved/foreign/old", "old"}}));
    EXPECT_EQ(treeAt(dir / "parent/out"), (Tree{{"new", "new"}}));
}

TEST(Commit, DeletesItsOwnersReadOnlyAndClosedDirectories) {
    const TempDir dir;
    fs::permissions(dir.path(), fs::perms{0777});
    const std::string left = asOrdinaryUser([&] {
        for (const char* name : {"read-only", "closed", "write-only", "search-only"})
            writeFile(dir / "parent/out" / name / "sub/old", "old");
        chmod((dir / "parent/out/read-only/sub").c_str(), 0555);
        chmod((dir / "parent/out/read-only").c_str(), 0555);
        chmod((dir / "parent/out/closed").c_str(), 0);
        chmod((dir / "parent/out/write-only").c_str(), 0200);
        chmod((dir / "parent/out/search-only").c_str(), 0100);
        chmod((dir / "parent/out").c_str(), 0500);
        return leftOverAfterReplacing(dir / "parent/out");
    });
    EXPECT_EQ(left, "nothing");
    EXPECT_EQ(treeAt(dir / "parent"), onlyTheNewTree);
}

/// Makes `depth` nested directories, with a file and a directory in each.
void makeDeep(const fs::path& top, int depth) {
    int directory = open(top.c_str(), O_RDONLY | O_DIRECTORY);
    for (int level = 0; level < depth; ++level) {
        mkdirat(directory, "d", 0755);
        mkdirat(directory, "beside", 0755);
        close(openat(directory, "file", O_CREAT | O_WRONLY, 0644));
        const int next = openat(directory, "d", O_RDONLY | O_DIRECTORY);
        close(directory);
        directory = next;
    }
    close(directory);
}

TEST(Commit, DeletesAnOldTreeOfAnyDepthWithFewDescriptors) {
    const std::unique_ptr<TempDir> directory = makeMemoryDir();
    const TempDir& dir = *directory;
    fs::create_directory(dir / "out");
    makeDeep(dir / "out", 10000);
    const std::string left = inChildThatBecame([] { return true; },
                                               [&] {
                                                   const rlimit limit{16, 16};
                                                   setrlimit(RLIMIT_NOFILE, &limit);
                                                   return leftOverAfterReplacing(dir / "out");
                                               });
    EXPECT_EQ(left, "nothing");
    EXPECT_EQ(treeAt(dir.path()), onlyTheNewTree);
}

/// Replaces a tree with mounts in it. Returns what can be read of the mounts afterwards.
std::string keptOfMounts(const TempDir& dir, bool tellsMounts) {
    if (!mountMemory(dir / "out/sub/memory") || !bindMount(dir / "kept", dir / "out/sub/bound") ||
        !bindMount(dir / "kept/file", dir / "out/bound file"))
        return "cannot mount";
    writeFile(dir / "out/sub/memory/file", "kept");
    InBetween between;
    between.tellsMounts = tellsMounts;
    const std::string told = leftOverAfterReplacing(dir / "out");
    const fs::path rest = told.substr(std::string("mounts in ").size());
    return readFile(rest / "moved/sub/memory/file") + readFile(rest / "moved/sub/bound/file") +
           readFile(rest / "moved/bound file");
}

TEST(Commit, DeletesNothingThatIsMountedInTheOldTree) {
    if (!canMount()) GTEST_SKIP() << "this machine lets nobody mount";
    for (const bool tellsMounts : {true, false}) {
        SCOPED_TRACE(tellsMounts);
        const TempDir dir;
        writeFile(dir / "kept/file", "kept");
        fs::create_directories(dir / "out/sub/memory");
        fs::create_directories(dir / "out/sub/bound");
        writeFile(dir / "out/bound file", "old");
        EXPECT_EQ(withMounts([&] { return keptOfMounts(dir, tellsMounts); }), "keptkeptkept");
        EXPECT_EQ(readFile(dir / "kept/file"), "kept");
        EXPECT_EQ(readFile(dir / "out/new"), "new");
    }
}

TEST(Commit, ReportsAnOldTreeThatItsFileSystemCannotMove) {
    if (!canMount()) GTEST_SKIP() << "this machine lets nobody mount";
    const TempDir dir;
    writeFile(dir / "lower/out/old", "old");
    fs::create_directory(dir / "seen");
    const std::string errors = withMounts([&] {
        // The upper directory of an overlay must not be below an overlay itself.
        if (!mountMemory(dir / "seen")) return std::string("cannot mount");
        fs::create_directories(dir / "seen/merged");
        if (!mountOverlay(dir / "lower", dir / "seen/changes", dir / "seen/merged"))
            return std::string("no overlays");
        const fs::path out = dir / "seen/merged/out";
        const fs::path staging = stageNewTree(out, true);
        const std::string error = commit(staging, out).error;
        removeExtractionTree(staging);
        return error + ": " + readFile(out / "old") + ", " +
               std::to_string(treeAt(dir / "seen/merged").size());
    });
    if (errors == "no overlays") GTEST_SKIP() << "this machine knows no overlays";
    EXPECT_EQ(errors, "Destination cannot be moved by its file system: old, 2");
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

TEST(Commit, RefusesAMountPointThatAppearedMeanwhile) {
    if (!canMount()) GTEST_SKIP() << "this machine lets nobody mount";
    const TempDir dir;
    fs::create_directory(dir / "out");
    const std::string error = withMounts([&] {
        const fs::path staging = stageNewTree(dir / "out", true);
        return mountMemory(dir / "out") ? commit(staging, dir / "out").error : "cannot mount";
    });
    EXPECT_EQ(error, "Destination cannot be replaced");
}

TEST(Commit, DeletesDirectoriesWithAnyPermissionsOfTheOwner) {
    for (const mode_t mode : {0U, 0100U, 0200U, 0300U, 0400U, 0500U, 0600U}) {
        SCOPED_TRACE(mode);
        const TempDir dir;
        fs::permissions(dir.path(), fs::perms{0777});
        const std::string left = asOrdinaryUser([&] {
            writeFile(dir / "parent/out/closed/old", "old");
            chmod((dir / "parent/out/closed").c_str(), mode);
            return leftOverAfterReplacing(dir / "parent/out");
        });
        EXPECT_EQ(left, "nothing");
    }
}

TEST(Commit, DeletesDeepDirectoriesThatMayNotBeChanged) {
    const TempDir dir;
    fs::permissions(dir.path(), fs::perms{0777});
    const std::string left = asOrdinaryUser([&] {
        fs::create_directories(dir / "parent/out");
        makeDeep(dir / "parent/out", 40);
        for (fs::path path = dir / "parent/out/d"; fs::exists(path); path /= "d")
            chmod(path.c_str(), 0555);
        return leftOverAfterReplacing(dir / "parent/out");
    });
    EXPECT_EQ(left, "nothing");
}

TEST(RemoveExtractionTree, WorksWithASmallStack) {
    const TempDir dir;
    const fs::path staging = stageNewTree(dir / "out", false);
    makeDeep(directoryOf(staging) / "tree", 400);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 128 * 1024);
    pthread_t thread{};
    const auto deletion = [](void* directory) -> void* {
        const auto& path = *static_cast<const fs::path*>(directory);
        const StagingResult prepared = vesk::testing::prepare(path / "other", false);
        if (rename((path / "deep").c_str(), (prepared.staging / "deep").c_str()) != 0)
            return directory;
        removeExtractionTree(prepared.staging);
        return nullptr;
    };
    fs::rename(directoryOf(staging) / "tree/d", dir / "deep");
    fs::path path = dir.path();
    ASSERT_EQ(pthread_create(&thread, &attributes, deletion, &path), 0);
    void* result = &path;
    pthread_join(thread, &result);
    pthread_attr_destroy(&attributes);
    removeExtractionTree(staging);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(treeAt(dir.path()), Tree{});
}

TEST(RemoveExtractionTree, ReportsWhatItCannotDeleteWithoutADescriptor) {
    const TempDir dir;
    const std::string told =
        inChildThatBecame([] { return true; },
                          [&] {
                              const fs::path staging = stageNewTree(dir / "out", false);
                              const rlimit none{0, 0};
                              setrlimit(RLIMIT_NOFILE, &none);
                              removeExtractionTree(staging);
                              const auto left = takeLeftover();
                              return left ? left->path.parent_path().native() : "nothing";
                          });
    EXPECT_EQ(told, dir.path());
}

TEST(RemoveExtractionTree, LeavesThePreparedTreeAloneWhenGivenAnotherPath) {
    const TempDir dir;
    const fs::path staging = stageNewTree(dir / "out", false);
    removeExtractionTree(dir / "other");
    EXPECT_TRUE(fs::exists(staging));
    expectFailure(commit(dir / "other", dir / "out"), "Cannot move extracted files to destination");
    EXPECT_TRUE(commit(staging, dir / "out").ok);
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

TEST(RemoveExtractionTree, LeavesAloneWhatThisThreadHasNotPrepared) {
    const TempDir dir;
    writeFile(dir / "kept/file", "kept");
    removeExtractionTree(dir / "missing");
    removeExtractionTree(dir / "kept");
    removeExtractionTree({});
    EXPECT_EQ(treeAt(dir.path()), (Tree{{"kept", "/"}, {"kept/file", "kept"}}));
}

TEST(RemoveExtractionTree, RemovesTheParentsThatWereMadeAndAreEmpty) {
    const TempDir dir;
    removeExtractionTree(stageNewTree(dir / "a/b/out", false));
    EXPECT_EQ(treeAt(dir.path()), Tree{});

    const fs::path staging = stageNewTree(dir / "a/b/out", false);
    writeFile(dir / "a/file", "kept");
    removeExtractionTree(staging);
    EXPECT_EQ(treeAt(dir.path()), (Tree{{"a", "/"}, {"a/file", "kept"}}));
}

TEST(RemoveExtractionTree, RemovesWhatItCanOfTheParentsThatWereMade) {
    const TempDir dir;
    const fs::path staging = stageNewTree(dir / "a/../b/out", false);
    writeFile(dir / "b/file", "kept");
    removeExtractionTree(staging);
    EXPECT_EQ(treeAt(dir.path()), (Tree{{"b", "/"}, {"b/file", "kept"}}));
}

TEST(RemoveExtractionTree, LeavesAloneWhatReplacedAParentThatWasMade) {
    const TempDir dir;
    const fs::path staging = stageNewTree(dir / "a/out", false);
    fs::rename(dir / "a", dir / "moved");
    fs::create_directory(dir / "a");
    removeExtractionTree(staging);
    EXPECT_EQ(treeAt(dir.path()), (Tree{{"a", "/"}, {"moved", "/"}}));
}

TEST(RemoveExtractionTree, NeedsNoMemoryAndDeletesDeepTreesWithFewDescriptors) {
    const TempDir dir;
    const std::string ending =
        inChildThatBecame([] { return true; },
                          [&] {
                              const fs::path staging = stageNewTree(dir / "out", false);
                              makeDeep(directoryOf(staging) / "tree", 120);
                              const rlimit limit{12, 12};
                              setrlimit(RLIMIT_NOFILE, &limit);
                              forgetAllocations();
                              removeExtractionTree(staging);
                              const std::size_t largest = largestAllocation();
                              return std::to_string(largest) + (takeLeftover() ? " left" : "");
                          });
    EXPECT_EQ(ending, "0");
    EXPECT_EQ(treeAt(dir.path()), Tree{});
}

TEST(AbandonStaging, RemovesWhatWasPreparedAndNeitherCommittedNorRemoved) {
    const TempDir dir;
    stageNewTree(dir / "made/out", false);
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

TEST(AbandonStaging, LeavesAloneWhatAnotherThreadPrepared) {
    const TempDir dir;
    const fs::path staging = stageNewTree(dir / "out", false);
    std::thread other([] { abandonStaging(); });
    other.join();
    EXPECT_TRUE(fs::exists(staging));
    removeExtractionTree(staging);
}

/// Returns the number of files that other programs would inherit from this one.
int inheritableFileCount() {
    int count = 0;
    for (int number = 3; number < 1024; ++number) {
        const int flags = fcntl(number, F_GETFD);
        count += flags != -1 && (flags & FD_CLOEXEC) == 0 ? 1 : 0;
    }
    return count;
}

TEST(Staging, LetsNoOtherProgramInheritADescriptor) {
    const TempDir dir;
    const int before = inheritableFileCount();
    const fs::path staging = stageNewTree(dir / "out", false);
    EXPECT_EQ(inheritableFileCount(), before);
    removeExtractionTree(staging);
}

TEST(Staging, LeavesNoDescriptorOpen) {
    const TempDir dir;
    const std::ptrdiff_t before = openFileCount();
    EXPECT_TRUE(commit(stageNewTree(dir / "out", true), dir / "out").ok);
    EXPECT_EQ(openFileCount(), before);
    EXPECT_TRUE(commit(stageNewTree(dir / "out", true), dir / "out").ok);
    removeExtractionTree(stageNewTree(dir / "out", true));
    EXPECT_FALSE(vesk::testing::prepare(dir / "out", false).ok);
    EXPECT_EQ(openFileCount(), before);
}

}  // namespace
