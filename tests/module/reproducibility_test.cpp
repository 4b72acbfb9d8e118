// SPDX-License-Identifier: MIT
// The same names and contents always give the same bytes, whatever else differs on disk.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>

#include "tests/support/memory_dir.h"
#include "tests/support/module_calls.h"
#include "tests/support/recording_host.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tree.h"

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

/// A hundred files in three directories, with sizes of every remainder of the block size.
Tree exampleTree() {
    Tree tree;
    for (unsigned number = 0; number < 100; ++number) {
        const std::string text = std::to_string(number);
        const char* const directory = std::array{"", "sub/", "sub/deeper/"}[number % 3];
        tree[directory + ("file-" + text)] = std::string(number * 41, 'a') + text;
    }
    tree["sub.txt"] = "sorts between sub-, sub. and sub/";
    tree["sub-x/y"] = "";
    return tree;
}

void writeInReverse(const fs::path& root, const Tree& tree) {
    for (auto file = tree.rbegin(); file != tree.rend(); ++file) {
        writeFile(root / file->first, file->second);
    }
}

/// Gives every file and directory below `root` other permissions, another time and, where that is
/// allowed, another owner.
void changeAttributes(const fs::path& root) {
    constexpr std::array<mode_t, 4> modes{0400, 0755, 06755, 0666};
    unsigned number = 0;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        ++number;
        const char* const path = entry.path().c_str();
        if (geteuid() == 0) {
            ASSERT_EQ(lchown(path, 1000 + number, 2000 + number), 0);
        }
        ASSERT_EQ(chmod(path, entry.is_directory() ? 0700 : modes[number % 4]), 0);
        fs::last_write_time(entry.path(),
                            fs::file_time_type::clock::now() - std::chrono::hours(number * 100));
    }
}

std::string archiveOf(Container container, const fs::path& source) {
    const TempDir directory;
    RecordingHost host;
    makeArchive(container, source.c_str(), (directory / "archive").c_str());
    if (host.pendingMessage) throw std::runtime_error(*host.pendingMessage);
    return readFile(directory / "archive");
}

void expectSameArchives(const fs::path& one, const fs::path& other) {
    EXPECT_TRUE(archiveOf(Container::tar, one) == archiveOf(Container::tar, other)) << "tar";
    EXPECT_TRUE(archiveOf(Container::tgz, one) == archiveOf(Container::tgz, other)) << "tgz";
}

}  // namespace

TEST(Reproducibility, OtherFileSystemOrderPermissionsOwnersAndTimesChangeNothing) {
    const TempDir one;
    const auto other = makeMemoryDir();
    writeTree(one / "source", exampleTree());
    writeInReverse(*other / "another name", exampleTree());
    changeAttributes(*other / "another name");
    expectSameArchives(one / "source", *other / "another name");
}

TEST(Reproducibility, OrderOfCreationChangesNothingOnOneFileSystem) {
    const auto directory = makeMemoryDir();
    writeTree(*directory / "forth", exampleTree());
    writeInReverse(*directory / "back", exampleTree());
    expectSameArchives(*directory / "forth", *directory / "back");
}

TEST(Reproducibility, TheSameSourceTwiceGivesTheSameBytes) {
    const TempDir directory;
    writeTree(directory / "source", exampleTree());
    expectSameArchives(directory / "source", directory / "source");
}

TEST(Reproducibility, WayOfNamingTheSourceChangesNothing) {
    const TempDir directory;
    writeTree(directory / "source", exampleTree());
    fs::create_directory_symlink("source", directory / "link");
    const std::string root = directory.path().native();
    for (const std::string& name : {root + "/source/", root + "//source", root + "/source/sub/..",
                                    root + "/source/.", root + "/link", root + "/link/"}) {
        SCOPED_TRACE(name);
        expectSameArchives(directory / "source", name);
    }
}

TEST(Reproducibility, HolesAndLinksCountForTheirContents) {
    const TempDir directory;
    writeTree(directory / "plain",
              {{"a", std::string(100000, '\0')}, {"b", "same"}, {"c", "same"}});
    writeTree(directory / "special", {{"a", ""}, {"b", "same"}});
    fs::resize_file(directory / "special/a", 100000);
    fs::create_hard_link(directory / "special/b", directory / "special/c");
    expectSameArchives(directory / "plain", directory / "special");

    fs::remove(directory / "special/c");
    fs::create_symlink("b", directory / "special/c");
    expectSameArchives(directory / "plain", directory / "special");
}

TEST(Reproducibility, DirectoriesThatHoldNoFileChangeNothing) {
    const TempDir directory;
    writeTree(directory / "plain", exampleTree());
    writeTree(directory / "more", exampleTree());
    fs::create_directories(directory / "more/empty/below");
    ASSERT_EQ(mkfifo((directory / "more/pipe").c_str(), 0600), 0);
    expectSameArchives(directory / "plain", directory / "more");
}

TEST(Reproducibility, EveryDifferenceOfNameOrContentShows) {
    const TempDir directory;
    const Tree tree = exampleTree();
    writeTree(directory / "source", tree);
    const std::string tar = archiveOf(Container::tar, directory / "source");

    Tree otherContent = tree;
    otherContent["sub.txt"].back() ^= 1;
    writeTree(directory / "content", otherContent);
    EXPECT_FALSE(archiveOf(Container::tar, directory / "content") == tar);

    Tree otherName = tree;
    auto renamed = otherName.extract("sub.txt");
    renamed.key() = "sub.txu";
    otherName.insert(std::move(renamed));
    writeTree(directory / "name", otherName);
    EXPECT_FALSE(archiveOf(Container::tar, directory / "name") == tar);
}

}  // namespace vesk::testing
