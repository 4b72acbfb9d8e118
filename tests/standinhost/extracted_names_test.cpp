// SPDX-License-Identifier: MIT
// Every name that the stand-in was told must exist at the commit. The commit fails if one is
// missing by then, or vanishes while the tree is moved.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <vector>

#include "tests/standinhost/rename_faults.h"
#include "tests/standinhost/staging_support.h"
#include "tests/support/ordinary_user.h"

namespace {

namespace fs = std::filesystem;
using namespace vesk::testing;

constexpr const char* cannotMove = "Cannot move extracted files to destination";

struct Row {
    const char* name;
    std::vector<std::string> told;
    std::vector<std::string> made;  // directories end in a slash
    bool isWhole;
};

const Row rows[] = {
    {"nothing", {}, {}, true},
    {"a file", {"a"}, {"a"}, true},
    {"no file", {"a"}, {}, false},
    {"one of two", {"a", "b"}, {"a"}, false},
    {"one more than told", {"a"}, {"a", "b"}, true},
    {"one that was told twice", {"a", "a", "b", "a"}, {"a", "b"}, true},
    {"one that was told in two ways", {"d/a", "d//a", "./d/a", "d/x/../a"}, {"d/a"}, true},
    {"a hidden one", {".a"}, {}, false},
    {"no file in two directories", {"d/e/f"}, {"d/e/"}, false},
    {"a file in two directories", {"d/e/f"}, {"d/e/f"}, true},
    {"directories with one beginning", {"de/f", "dx/f"}, {"de/f", "dx/"}, false},
    {"a file beside a directory", {"d/f", "a", "d/g"}, {"d/f", "d/g"}, false},
};

TEST(ExtractedNames, AreMissedAtTheCommit) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        const fs::path staging = prepare(dir / "out", false).staging;
        for (const std::string& name : row.told)
            Vesk_runtimeFsPath(name.c_str());
        for (const std::string& name : row.made) {
            if (name.ends_with('/')) fs::create_directories(staging / name);
            if (!name.ends_with('/')) writeFile(staging / name, "new");
        }
        EXPECT_EQ(commit(staging, dir / "out").error, row.isWhole ? "before" : cannotMove);
        vesk::runtime::archives::removeExtractionTree(staging);
        EXPECT_EQ(fs::exists(dir / "out"), row.isWhole);
    }
}

TEST(ExtractedNames, AreAllCountedInALargeDirectory) {
    const TempDir dir;
    const fs::path staging = prepare(dir / "out", false).staging;
    for (int number = 0; number < 500; ++number) {
        const std::string name = "with a name of some length " + std::to_string(number);
        Vesk_runtimeFsPath(name.c_str());
        writeFile(staging / name, "");
    }
    EXPECT_EQ(commit(staging, dir / "out").error, "before");
}

TEST(ExtractedNames, CountAsPresentWhereTheyCannotBeRead) {
    const TempDir dir;
    fs::permissions(dir.path(), fs::perms{0777});
    const std::string error = asOrdinaryUser([&] {
        const fs::path staging = prepare(dir / "parent/out", false).staging;
        for (const char* name : {"closed/a", "closed/b"}) {
            Vesk_runtimeFsPath(name);
            writeFile(staging / name, "new");
        }
        chmod((staging / "closed").c_str(), 0);
        return commit(staging, dir / "parent/out").error;
    });
    EXPECT_EQ(error, "before");
}

TEST(ExtractedNames, CountAsPresentInATreeThatTakesOverClosedPermissions) {
    const TempDir dir;
    fs::permissions(dir.path(), fs::perms{0777});
    const std::string error = asOrdinaryUser([&] {
        fs::create_directories(dir / "parent/out");
        chmod((dir / "parent/out").c_str(), 0);
        const fs::path staging = prepare(dir / "parent/out", true).staging;
        writeFile(staging / "sub/file", "new");
        return commit(staging, dir / "parent/out").error;
    });
    EXPECT_EQ(error, "before");
}

/// Gives the directory a time of change that is not over when the tree is moved.
void setTheClock(const fs::path& directory) {
    const timespec times[] = {{0, UTIME_OMIT}, {0x7FFFFFFF, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, directory.c_str(), times, 0), 0);
}

/// Commits a tree, changes it by `change` just before it is moved, and returns the message.
std::string commitWhileItChanges(const std::function<void(const fs::path& tree)>& change) {
    const TempDir dir;
    const fs::path staging = prepare(dir / "out", false).staging;
    Vesk_runtimeFsPath("sub/file");
    writeFile(staging / "sub/file", "new");
    setTheClock(staging / "sub");
    const fs::path tree = vesk::testing::directoryOf(staging) / "moved";
    RenameFaults faults;
    faults.beforeRename = [&](const std::string&, const std::string&) {
        if (fs::exists(tree)) change(tree);
        return 0;
    };
    const std::string error = commit(staging, dir / "out").error;
    vesk::runtime::archives::removeExtractionTree(staging);
    return error;
}

TEST(ExtractedNames, AreMissedWhenTheyVanishFromOneOfSeveralDirectories) {
    EXPECT_EQ(commitWhileItChanges([](const fs::path& tree) { fs::remove(tree / "sub/file"); }),
              cannotMove);
}

TEST(ExtractedNames, AreMissedWhenTheyGoBeforeTheClockMovesOn) {
    EXPECT_EQ(commitWhileItChanges([](const fs::path& tree) {
                  fs::remove(tree / "sub/file");
                  setTheClock(tree / "sub");
              }),
              cannotMove);
}

}  // namespace
