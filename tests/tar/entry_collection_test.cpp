// SPDX-License-Identifier: MIT
// Tests of collecting the entries of a source: what becomes an entry, under which name, in which
// order, and which failures end the collection.
#include "tar/entry_collection.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/ordinary_user.h"
#include "tests/support/recording_host.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tree.h"

namespace {

namespace fs = std::filesystem;
using namespace std::literals;
using namespace vesk::io::archives;
using namespace vesk::testing;

using Lines = std::vector<std::string>;

class EntryCollection : public ::testing::Test {
protected:
    const TempDir dir;
    const std::string root = dir.path().native();
    RecordingHost host;

    /// Returns the calls of a collection, then its entries as "name < source path".
    Lines collected(const fs::path& source) {
        host.calls.clear();
        const std::vector<ArchiveEntryInfo> entries = collectArchiveEntries(source);
        Lines lines = host.calls;
        for (const ArchiveEntryInfo& entry : entries) {
            lines.push_back(entry.entryName + " < " + entry.sourcePath);
        }
        return lines;
    }

    Lines names(const fs::path& source) {
        host.calls.clear();
        Lines result;
        for (const ArchiveEntryInfo& entry : collectArchiveEntries(source)) {
            result.push_back(entry.entryName);
        }
        EXPECT_EQ(host.calls, Lines());
        return result;
    }

    /// Like `collected`, but as an ordinary user in the directory, and as one text.
    std::string collectedAsOrdinaryUser(const fs::path& source) {
        return asOrdinaryUser([&] {
            fs::current_path(root);
            std::string text;
            for (const std::string& line : collected(source))
                text += line + "\n";
            return text;
        });
    }
};

const Lines doesNotExist = {"Vesk_raise(IOException, Archive source does not exist)"};
const Lines cannotEnumerate = {"Vesk_raise(IOException, Cannot enumerate archive source)"};
const Lines wrongKind = {"Vesk_raise(IOException, Archive source must be a file or directory)"};

TEST_F(EntryCollection, MakesOneEntryOfASourceThatIsAFile) {
    writeFile(dir / "sub/notes.txt", "x");
    fs::create_symlink("sub/notes.txt", dir / "link.txt");
    fs::create_directory_symlink("sub", dir / "link-to-sub");
    struct Row {
        std::string source;
        std::string name;
    };
    const Row rows[] = {
        {root + "/sub/notes.txt", "notes.txt"},
        {root + "//sub///notes.txt", "notes.txt"},
        {root + "/./sub/../sub/notes.txt", "notes.txt"},
        {root + "/link-to-sub/notes.txt", "notes.txt"},
        {root + "/link.txt", "link.txt"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(collected(row.source), Lines{row.name + " < " + row.source});
    }
}

TEST_F(EntryCollection, NamesTheFilesOfADirectoryRelativeToIt) {
    writeTree(dir / "proj", {{"a.txt", ""}, {"sub/b.txt", ""}, {"sub/deeper/c", ""}});
    fs::create_directory_symlink("proj", dir / "link");
    struct Row {
        std::string source;
        std::string prefix;
    };
    const Row rows[] = {
        {root + "/proj", root + "/proj/"},
        {root + "/proj/", root + "/proj/"},
        {root + "//proj", root + "//proj/"},
        {root + "/proj/.", root + "/proj/./"},
        {root + "/proj/sub/..", root + "/proj/sub/../"},
        {root + "/link", root + "/link/"},
        {root + "/link/", root + "/link/"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(collected(row.source), (Lines{"a.txt < " + row.prefix + "a.txt",
                                                "sub/b.txt < " + row.prefix + "sub/b.txt",
                                                "sub/deeper/c < " + row.prefix + "sub/deeper/c"}));
    }
    EXPECT_EQ(names(root + "/proj//"), (Lines{"a.txt", "sub/b.txt", "sub/deeper/c"}));
}

TEST_F(EntryCollection, KeepsARelativeSourceRelative) {
    writeTree(dir / "proj", {{"a.txt", ""}, {"sub/b.txt", ""}});
    fs::permissions(dir.path(), fs::perms(0755));
    EXPECT_EQ(collectedAsOrdinaryUser("proj"), "a.txt < proj/a.txt\nsub/b.txt < proj/sub/b.txt\n");
    EXPECT_EQ(collectedAsOrdinaryUser("."),
              "proj/a.txt < ./proj/a.txt\nproj/sub/b.txt < ./proj/sub/b.txt\n");
    EXPECT_EQ(collectedAsOrdinaryUser("proj/.."),
              "proj/a.txt < proj/../proj/a.txt\nproj/sub/b.txt < proj/../proj/sub/b.txt\n");
    EXPECT_EQ(collectedAsOrdinaryUser("proj/a.txt"), "a.txt < proj/a.txt\n");
}

TEST_F(EntryCollection, FindsNothingInADirectoryWithoutFiles) {
    fs::create_directories(dir / "empty");
    fs::create_directories(dir / "nested" / "a" / "b");
    fs::create_directories(dir / "nested" / "c");
    EXPECT_EQ(names(dir / "empty"), Lines());
    EXPECT_EQ(names(dir / "nested"), Lines());
    writeFile(dir / "nested" / "a" / "file", "");
    EXPECT_EQ(names(dir / "nested"), Lines{"a/file"});
}

TEST_F(EntryCollection, OrdersNamesByTheirBytesNotByTheTree) {
    const Lines ordered = {
        "!",  "+",      "A",     "B.txt", "a",        "a!",   "a-b/c", "a.txt",
        "a0", "a1/b/c", "a1/b0", "aa",    "ab/aa",    "ab/b", "abc",   "b/c/d/e",
        "b0", "~",      "\x7F",  "\x80",  "\xC3\xA9", "\xFF",
    };
    for (auto name = ordered.rbegin(); name != ordered.rend(); ++name) {
        writeFile(dir / *name, "");
    }
    EXPECT_EQ(names(root), ordered);

    writeTree(dir / "short", {{"a/b", ""}, {"a.txt", ""}, {"a-b/c", ""}});
    EXPECT_EQ(names(dir / "short"), (Lines{"a-b/c", "a.txt", "a/b"}));
}

TEST_F(EntryCollection, KeepsEveryByteOfAName) {
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != '/') writeFile(dir / ("-"s + static_cast<char>(byte)), "");
    }
    Lines expected;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != '/') expected.push_back("-"s + static_cast<char>(byte));
    }
    EXPECT_EQ(names(root), expected);
}

TEST_F(EntryCollection, FollowsLinksToFilesButNotToDirectories) {
    writeTree(dir / "source", {{"file", "x"}, {"sub/below", "x"}});
    writeFile(dir / "outside" / "target", "x");
    fs::create_symlink("../outside/target", dir / "source" / "link.txt");
    fs::create_symlink("link.txt", dir / "source" / "link-to-link");
    fs::create_directory_symlink("../outside", dir / "source" / "link-to-directory");
    fs::create_directory_symlink("..", dir / "source" / "sub" / "up");
    const std::string source = root + "/source";
    EXPECT_EQ(
        collected(source),
        (Lines{"file < " + source + "/file", "link-to-link < " + source + "/link-to-link",
               "link.txt < " + source + "/link.txt", "sub/below < " + source + "/sub/below"}));
}

TEST_F(EntryCollection, SkipsWhatIsNeitherFileNorDirectory) {
    writeFile(dir / "a", "x");
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    ASSERT_EQ(mknod((dir / "socket").c_str(), S_IFSOCK | 0600, 0), 0);
    fs::create_symlink("fifo", dir / "link-to-fifo");
    fs::create_symlink("/dev/null", dir / "link-to-device");
    writeFile(dir / "z", "x");
    EXPECT_EQ(names(root), (Lines{"a", "z"}));
}

TEST_F(EntryCollection, DoesNotFindAMissingOrUnreachableSource) {
    writeFile(dir / "file", "x");
    fs::create_symlink("nowhere", dir / "dangling");
    fs::create_symlink("loop", dir / "loop");
    for (const std::string& source :
         {root + "/missing", root + "/missing/", root + "/missing/x", root + "/file/",
          root + "/file/x", root + "/dangling", root + "/loop", root + "/loop/x",
          root + "/" + std::string(256, 'n'), std::string(5000, 'n')}) {
        EXPECT_EQ(collected(source), doesNotExist) << source;
    }
}

TEST_F(EntryCollection, DoesNotFindASourceInADirectoryThatTheUserMayNotSearch) {
    writeFile(dir / "closed" / "file", "x");
    fs::permissions(dir.path(), fs::perms(0755));
    fs::permissions(dir / "closed", fs::perms::none);
    for (const char* const source : {"closed/file", "closed/missing", "closed/."}) {
        EXPECT_EQ(collectedAsOrdinaryUser(source), doesNotExist.front() + "\n") << source;
    }
}

TEST_F(EntryCollection, AcceptsOnlyFilesAndDirectoriesAsASource) {
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    ASSERT_EQ(mknod((dir / "socket").c_str(), S_IFSOCK | 0600, 0), 0);
    fs::create_symlink("fifo", dir / "link");
    fs::create_symlink("/dev/null", dir / "device");
    for (const std::string& source :
         {root + "/fifo", root + "/socket", root + "/link", root + "/device"}) {
        EXPECT_EQ(collected(source), wrongKind) << source;
    }
}

TEST_F(EntryCollection, EndsAtADanglingLinkAndReturnsNothing) {
    for (const char* const target : {"nowhere", "link", "file/x"}) {
        for (const char* const place : {"link", "sub/deeper/link"}) {
            SCOPED_TRACE(place + " -> "s + target);
            const TempDir source;
            writeTree(source.path(), {{"file", ""}, {"sub/deeper/file", ""}, {"z", ""}});
            fs::create_symlink(target, source / place);
            EXPECT_EQ(collected(source.path()), cannotEnumerate);
        }
    }
}

TEST_F(EntryCollection, EndsAtADirectoryThatTheUserMayNotRead) {
    writeTree(dir / "source", {{"a", ""}, {"m/closed/file", ""}, {"z", ""}});
    fs::permissions(dir.path(), fs::perms(0755));
    EXPECT_EQ(collectedAsOrdinaryUser("source"),
              "a < source/a\nm/closed/file < source/m/closed/file\nz < source/z\n");
    fs::permissions(dir / "source/m/closed", fs::perms::none);
    for (const char* const source : {"source", "source/m", "source/m/closed"}) {
        EXPECT_EQ(collectedAsOrdinaryUser(source), cannotEnumerate.front() + "\n") << source;
    }
}

// A directory that may be listed but not searched gives the names of its entries and no more.
TEST_F(EntryCollection, EndsAtALinkWhoseTargetTheUserMayNotExamine) {
    writeFile(dir / "file", "");
    fs::create_directory(dir / "listed");
    fs::create_symlink("../file", dir / "listed" / "link");
    fs::permissions(dir.path(), fs::perms(0755));
    fs::permissions(dir / "listed", fs::perms(0444));
    EXPECT_EQ(collectedAsOrdinaryUser("listed"), cannotEnumerate.front() + "\n");
}

TEST_F(EntryCollection, FindsAnUnreadableFileWithoutOpeningIt) {
    writeFile(dir / "file", "");
    fs::permissions(dir.path(), fs::perms(0755));
    fs::permissions(dir / "file", fs::perms::none);
    EXPECT_EQ(collectedAsOrdinaryUser("."), "file < ./file\n");
    EXPECT_EQ(collectedAsOrdinaryUser("file"), "file < file\n");
}

TEST(EntryName, ReplacesEachRunOfSlashesByOneAndNothingElse) {
    struct Row {
        std::string path;
        std::string name;
    };
    const Row rows[] = {
        {"", ""},
        {"a", "a"},
        {"/", "/"},
        {"//", "/"},
        {"///", "/"},
        {"/a", "/a"},
        {"//a", "/a"},
        {"///a//b", "/a/b"},
        {"a/b", "a/b"},
        {"a//b///c", "a/b/c"},
        {"a/", "a/"},
        {"a///", "a/"},
        {".", "."},
        {"..", ".."},
        {"./a", "./a"},
        {"../a//./b/..", "../a/./b/.."},
        {"a\\b\\\\c", "a\\b\\\\c"},
        {"\\", "\\"},
        {"A:b", "A:b"},
        {" a /\n", " a /\n"},
        {"\xFF\x80/\xC3\xA9//\xC3", "\xFF\x80/\xC3\xA9/\xC3"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(zipNormalizeEntryName(row.path), row.name) << row.path;
    }
}

}  // namespace
