// SPDX-License-Identifier: MIT
// Tests of the archive's destination: which paths may be used, and what is there after writing.
#include "fileaccess/archive_destination.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/buffer_text.h"
#include "tests/support/open_files.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/recording_host.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tree.h"

namespace {

namespace fs = std::filesystem;
using namespace std::literals;
using namespace vesk::io::archives;
using namespace vesk::testing;

class ArchiveDestination : public ::testing::Test {
protected:
    const TempDir dir;
    const std::string root = dir.path().native();
    const fs::path archive = dir / "archive";
    RecordingHost host;

    void expectPrepared(const fs::path& path, bool overwrite) {
        host.calls.clear();
        EXPECT_TRUE(archivePrepareArchivePath(path, overwrite));
        EXPECT_EQ(host.calls, Calls());
    }

    void expectRefused(const fs::path& path, bool overwrite, const std::string& message) {
        host.calls.clear();
        EXPECT_FALSE(archivePrepareArchivePath(path, overwrite));
        EXPECT_EQ(host.calls, Calls{raised(message)});
    }

    void expectWritten(const fs::path& path, const std::string& content) {
        host.calls.clear();
        const auto filesBefore = openFileCount();
        archiveWriteFileBytes(path, asBuffer(content));
        EXPECT_EQ(host.calls, Calls());
        EXPECT_TRUE(readFile(path) == content);
        EXPECT_EQ(openFileCount(), filesBefore);
    }

    void expectNotWritten(const fs::path& path, const std::string& content,
                          const std::string& message) {
        host.calls.clear();
        const auto filesBefore = openFileCount();
        archiveWriteFileBytes(path, asBuffer(content));
        EXPECT_EQ(host.calls, Calls{raised(message)});
        EXPECT_EQ(openFileCount(), filesBefore);
    }

    /// Runs `body` as an ordinary user in the directory, which is open to all, and returns the
    /// calls that it made.
    std::string callsAsOrdinaryUser(const std::function<void()>& body) {
        return asOrdinaryUser([&] {
            fs::current_path(dir.path());
            host.calls.clear();
            body();
            std::string text;
            for (const std::string& call : host.calls)
                text += call;
            return text;
        });
    }
};

TEST_F(ArchiveDestination, PreparesAnUnusedPathAndCreatesOnlyItsParents) {
    for (const char* const name : {"archive", "new/archive", "a/b/c/archive", "d//e/./archive"}) {
        for (const bool overwrite : {false, true}) {
            SCOPED_TRACE(name);
            expectPrepared(dir / name, overwrite);
            EXPECT_TRUE(fs::is_directory((dir / name).parent_path()));
            EXPECT_FALSE(fs::exists(dir / name));
        }
    }
    EXPECT_EQ(readTree(dir.path()), (Tree{{"new/", ""}, {"a/b/c/", ""}, {"d/e/", ""}}));
}

TEST_F(ArchiveDestination, NeedsNoParentForABareFileName) {
    fs::permissions(dir.path(), fs::perms::all);
    EXPECT_EQ(callsAsOrdinaryUser([&] {
                  EXPECT_TRUE(archivePrepareArchivePath("bare", false));
                  archiveWriteFileBytes("bare", asBuffer("content"));
              }),
              "");
    EXPECT_EQ(readTree(dir.path()), (Tree{{"bare", "content"}}));
}

TEST_F(ArchiveDestination, MayReplaceWhateverExists) {
    writeFile(dir / "file", "old");
    writeFile(dir / "directory" / "old", "old");
    fs::create_symlink("file", dir / "link-to-file");
    fs::create_symlink("directory", dir / "link-to-directory");
    fs::create_symlink("/dev/null", dir / "link-to-device");
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    ASSERT_EQ(mknod((dir / "socket").c_str(), S_IFSOCK | 0600, 0), 0);
    const Tree before = readTree(dir.path());
    for (const std::string& path : {root + "/file", root + "/directory", root + "/directory/",
                                    root + "/link-to-file", root + "/link-to-directory",
                                    root + "/fifo", root + "/socket", root + "/link-to-device"}) {
        SCOPED_TRACE(path);
        expectRefused(path, false, "Archive already exists");
        expectPrepared(path, true);
    }
    EXPECT_EQ(readTree(dir.path()), before);
}

TEST_F(ArchiveDestination, TreatsADanglingLinkAsAbsentAndWritesThroughIt) {
    fs::create_symlink("target", archive);
    expectPrepared(archive, false);
    EXPECT_FALSE(fs::exists(dir / "target"));
    expectWritten(archive, "content");
    EXPECT_TRUE(fs::is_symlink(archive));
    EXPECT_EQ(readFile(dir / "target"), "content");
}

TEST_F(ArchiveDestination, CannotBeInspectedWithoutItsStatus) {
    fs::create_symlink("loop", dir / "loop");
    for (const std::string& path :
         {root + "/loop", root + "/loop/archive", root + "/" + std::string(256, 'n'),
          root + "/new/" + std::string(5000, 'n')}) {
        for (const bool overwrite : {false, true}) {
            SCOPED_TRACE(path);
            expectRefused(path, overwrite, "Cannot inspect archive destination");
        }
    }
    EXPECT_EQ(readTree(dir.path()), (Tree{{"loop?", ""}}));
}

TEST_F(ArchiveDestination, CannotBeInspectedInADirectoryThatTheUserMayNotSearch) {
    writeFile(dir / "closed" / "archive", "old");
    fs::permissions(dir.path(), fs::perms::all);
    fs::permissions(dir / "closed", fs::perms::none);
    for (const char* const path : {"closed/archive", "closed/missing", "closed/new/archive"}) {
        for (const bool overwrite : {false, true}) {
            EXPECT_EQ(callsAsOrdinaryUser([&] { archivePrepareArchivePath(path, overwrite); }),
                      "Vesk_raise(IOException, Cannot inspect archive destination)")
                << path;
        }
    }
    fs::permissions(dir / "closed", fs::perms::owner_all);
    EXPECT_EQ(readTree(dir.path()), (Tree{{"closed/archive", "old"}}));
}

TEST_F(ArchiveDestination, CannotCreateAParentWhereAFileIsInTheWay) {
    writeFile(dir / "file", "old");
    fs::create_symlink("nowhere", dir / "dangling");
    for (const char* const name : {"file/archive", "file/new/archive", "dangling/archive"}) {
        SCOPED_TRACE(name);
        for (const bool overwrite : {false, true}) {
            expectRefused(dir / name, overwrite, "Cannot create archive parent directory");
        }
        expectNotWritten(dir / name, "content", "Cannot create archive parent directory");
    }
    EXPECT_EQ(readTree(dir.path()), (Tree{{"file", "old"}, {"dangling?", ""}}));
}

TEST_F(ArchiveDestination, KeepsTheParentsThatWereCreatedBeforeTheFailure) {
    writeFile(dir / "file", "old");
    expectRefused(dir / "new/../file/archive", false, "Cannot create archive parent directory");
    EXPECT_EQ(readTree(dir.path()), (Tree{{"file", "old"}, {"new/", ""}}));
}

TEST_F(ArchiveDestination, CannotCreateAParentWhereTheUserMayNotWrite) {
    fs::permissions(dir.path(), fs::perms(0755));
    if (geteuid() != 0) fs::permissions(dir.path(), fs::perms(0555));
    const std::string message = "Vesk_raise(IOException, Cannot create archive parent directory)";
    EXPECT_EQ(callsAsOrdinaryUser([&] { archivePrepareArchivePath("new/archive", true); }),
              message);
    EXPECT_EQ(callsAsOrdinaryUser([&] { archiveWriteFileBytes("new/archive", asBuffer("x")); }),
              message);
}

TEST_F(ArchiveDestination, WritesAllBytesAndNothingElse) {
    for (const std::string& content : {"x"s, "a\nb\r\n\0\x1A\xFF"s, std::string(3000000, 'b')}) {
        SCOPED_TRACE(content.size());
        fs::remove(archive);
        expectWritten(archive, content);
    }
}

TEST_F(ArchiveDestination, WritesAFileWithoutBytesForAnEmptyBuffer) {
    expectWritten(archive, "");
    EXPECT_TRUE(fs::is_regular_file(archive));
}

TEST_F(ArchiveDestination, CreatesParentsThatHaveVanished) {
    expectWritten(dir / "a/b/archive", "content");
}

TEST_F(ArchiveDestination, ReplacesTheContentOfAFileInPlace) {
    for (const char* const content : {"shorter", ""}) {
        writeFile(archive, "the old content");
        fs::create_hard_link(archive, dir / "other-name");
        fs::permissions(archive, fs::perms(0604));
        expectWritten(archive, content);
        EXPECT_EQ(readFile(dir / "other-name"), content);
        EXPECT_EQ(fs::status(archive).permissions(), fs::perms(0604));
        fs::remove(dir / "other-name");
    }
}

TEST_F(ArchiveDestination, CannotCreateAnArchiveInPlaceOfADirectory) {
    writeFile(archive / "old", "old");
    for (const std::string& content : {"content"s, ""s}) {
        expectNotWritten(archive, content, "Cannot create archive");
        expectNotWritten(archive.native() + "/", content, "Cannot create archive");
    }
    EXPECT_EQ(readTree(dir.path()), (Tree{{"archive/old", "old"}}));
}

TEST_F(ArchiveDestination, CannotCreateAnArchiveWithoutPermission) {
    writeFile(dir / "open" / "protected", "old");
    writeFile(dir / "closed" / "old", "old");
    fs::permissions(dir.path(), fs::perms(0755));
    fs::permissions(dir / "open", fs::perms(0777));
    fs::permissions(dir / "open/protected", fs::perms(0444));
    fs::permissions(dir / "closed", fs::perms(0555));
    for (const char* const path : {"open/protected", "closed/new"}) {
        EXPECT_EQ(callsAsOrdinaryUser([&] { archiveWriteFileBytes(path, asBuffer("new")); }),
                  "Vesk_raise(IOException, Cannot create archive)")
            << path;
    }
    EXPECT_EQ(readTree(dir.path()), (Tree{{"open/protected", "old"}, {"closed/old", "old"}}));
}

// A small archive fails only when it is closed, a large one while it is written. The link protects
// the device from a writer that would remove or rename what it cannot write.
TEST_F(ArchiveDestination, CannotFinalizeAnArchiveOnAFullDevice) {
    fs::create_symlink("/dev/full", archive);
    for (const std::size_t size : {1U, 100U, 5000000U}) {
        SCOPED_TRACE(size);
        expectNotWritten(archive, std::string(size, 'x'), "Cannot finalize archive");
        EXPECT_TRUE(fs::is_character_file(archive));
    }
}

TEST_F(ArchiveDestination, LeavesWhatItWroteBeforeTheFailure) {
    writeFile(archive, std::string(10000, 'o'));
    fs::permissions(dir.path(), fs::perms::all);
    fs::permissions(archive, fs::perms(0666));
    EXPECT_EQ(callsAsOrdinaryUser([&] {
                  std::signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{1000, 1000};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  archiveWriteFileBytes(archive, asBuffer(std::string(20000, 'n')));
              }),
              "Vesk_raise(IOException, Cannot finalize archive)");
    EXPECT_EQ(readFile(archive), std::string(1000, 'n'));
}

}  // namespace
