// SPDX-License-Identifier: MIT
// Tests of building a TAR stream: every byte of it, the calls, and where it stops.
#include "tar/stream_builder.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/archived_bytes.h"
#include "tests/support/buffer_text.h"
#include "tests/support/recording_host.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tree.h"

namespace {

namespace fs = std::filesystem;
using namespace std::literals;
using namespace vesk::io::archives;
using namespace vesk::testing;

class StreamBuilder : public ::testing::Test {
protected:
    const TempDir dir;
    const fs::path source = dir / "source";
    RecordingHost host;

    /// Returns the conversion of the source and `count` answers that nothing is pending: one after
    /// the collection and two for each entry.
    Calls quietly(std::size_t count) const {
        return Calls{"Vesk_runtimeFsPath(" + source.native() + ")"} +
               Calls(count, "Vesk_hasPendingError() = 0");
    }

    std::string built() { return asText(tarBuildArchiveBytes(source.c_str())); }

    void expectFailure(const Calls& calls) {
        host.calls.clear();
        const ByteBuffer stream = tarBuildArchiveBytes(source.c_str());
        EXPECT_EQ(host.calls, calls);
        EXPECT_EQ(stream.size(), 0U);
        EXPECT_EQ(stream.data(), nullptr);
    }
};

TEST_F(StreamBuilder, RequiresASourcePathBeforeAnythingElse) {
    const char* const none = nullptr;
    for (const char* const path : {none, ""}) {
        host.calls.clear();
        const ByteBuffer stream = tarBuildArchiveBytes(path);
        EXPECT_EQ(stream.size(), 0U);
        EXPECT_EQ(host.calls, Calls{raised("Source path is required")});
    }
}

TEST_F(StreamBuilder, PadsTheDataOfAFileToWholeBlocks) {
    struct Row {
        std::size_t size;
        std::size_t padding;
        std::size_t streamSize;
    };
    const Row rows[] = {
        {0, 0, 1536},     {1, 511, 2048},  {511, 1, 2048},    {512, 0, 2048},
        {513, 511, 2560}, {1024, 0, 2560}, {5000, 120, 6656},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.size);
        const std::string data(row.size, 'x');
        writeFile(source, data);
        host.calls.clear();
        const std::string stream = built();
        EXPECT_EQ(host.calls, quietly(3));
        EXPECT_EQ(stream.size(), row.streamSize);
        EXPECT_EQ(stream, archivedHeader("source", row.size) + data +
                              std::string(row.padding + 1024, '\0'));
    }
}

TEST_F(StreamBuilder, BuildsOneEntryForASingleEmptyFile) {
    writeFile(source / "a", "");
    const std::string stream = asText(tarBuildArchiveBytes((source / "a").c_str()));
    EXPECT_EQ(stream.size(), 1536U);
    EXPECT_EQ(stream, archivedHeader("a", 0) + std::string(1024, '\0'));
    EXPECT_EQ(stream.substr(148, 8), "006076\0 "sv);
}

TEST_F(StreamBuilder, BuildsTheEndMarkerAloneForADirectoryWithoutFiles) {
    fs::create_directories(source);
    EXPECT_EQ(built(), std::string(1024, '\0'));
    EXPECT_EQ(host.calls, quietly(1));

    fs::create_directories(source / "empty" / "deeper");
    EXPECT_EQ(built(), std::string(1024, '\0'));
}

TEST_F(StreamBuilder, PutsEntriesInTheByteOrderOfTheirNames) {
    writeTree(source, {{"a/b", "slash"},
                       {"a.txt", "full stop"},
                       {"a-b/c", "hyphen"},
                       {"B.txt", "capital"},
                       {"\xC3\xA9", "above ASCII"},
                       {"a_", "underscore"}});
    EXPECT_EQ(built(), archivedEntry("B.txt", "capital") + archivedEntry("a-b/c", "hyphen") +
                           archivedEntry("a.txt", "full stop") + archivedEntry("a/b", "slash") +
                           archivedEntry("a_", "underscore") +
                           archivedEntry("\xC3\xA9", "above ASCII") + archivedEnd());
    EXPECT_EQ(host.calls, quietly(13));
}

TEST_F(StreamBuilder, KeepsTheBytesOfFilesAsTheyAre) {
    const std::string data = "\0\xFF\r\n\x1A\0"s + std::string(1000, '\x80');
    writeTree(source, {{"a", data}, {"b", "\0"s}, {"c/d", std::string(512, '\0')}});
    const std::string stream = built();
    EXPECT_EQ(stream, archivedEntry("a", data) + archivedEntry("b", "\0"s) +
                          archivedEntry("c/d", std::string(512, '\0')) + archivedEnd());
    EXPECT_EQ(host.calls, quietly(7));
}

TEST_F(StreamBuilder, StoresOnlyNameAndBytesOfAFile) {
    writeFile(source / "a", "content");
    const std::string expected = archivedEntry("a", "content") + archivedEnd();
    EXPECT_EQ(built(), expected);
    fs::permissions(source / "a", fs::perms(06755));
    fs::last_write_time(source / "a", fs::file_time_type::clock::now() - std::chrono::hours(9999));
    const bool isRoot = geteuid() == 0;
    ASSERT_EQ(chown((source / "a").c_str(), isRoot ? 1234 : geteuid(), isRoot ? 5678 : getegid()),
              0);
    EXPECT_EQ(built(), expected);
    EXPECT_EQ(built(), expected);
}

TEST_F(StreamBuilder, TakesTheSizeFromTheBytesThatWereRead) {
    writeFile(source / "a", "short");
    int question = 0;
    host.beforeHasPendingError = [&] {
        // Right after the file has been read.
        if (++question == 2) writeFile(source / "a", "a longer content");
    };
    EXPECT_EQ(built(), archivedEntry("a", "short") + archivedEnd());
    EXPECT_EQ(readFile(source / "a"), "a longer content");
}

TEST_F(StreamBuilder, StopsAtTheFailureOfTheCollection) {
    const Calls converted = quietly(0);
    const std::string pending = "Vesk_hasPendingError() = 1";
    expectFailure(converted + Calls{raised("Archive source does not exist"), pending});

    ASSERT_EQ(mkfifo(source.c_str(), 0600), 0);
    host.pendingClass.reset();
    expectFailure(converted + Calls{raised("Archive source must be a file or directory"), pending});

    fs::remove(source);
    writeFile(source / "a", "x");
    fs::create_symlink("nowhere", source / "b");
    host.pendingClass.reset();
    expectFailure(converted + Calls{raised("Cannot enumerate archive source"), pending});
}

TEST_F(StreamBuilder, StopsAtAFileThatIsTooLarge) {
    writeTree(source, {{"a", "x"}, {"b", ""}, {"c", "x"}});
    fs::resize_file(source / "b", 4294967296);
    expectFailure(quietly(3) +
                  Calls{raised("ZIP entry is too large for ZIP32"), "Vesk_hasPendingError() = 1"});
}

TEST_F(StreamBuilder, StopsAtANameThatIsTooLong) {
    const std::string tooLong(101, 'n');
    writeTree(source, {{"a", "x"}, {tooLong, "x"}, {"z", "x"}});
    expectFailure(quietly(4) +
                  Calls{raised("TAR entry name is too long"), "Vesk_hasPendingError() = 1"});
}

TEST_F(StreamBuilder, ReportsAFileThatCannotBeReadEvenIfItsNameIsTooLong) {
    const std::string tooLong(101, 'n');
    writeTree(source, {{tooLong, "x"}});
    host.beforeHasPendingError = [&] { fs::remove(source / tooLong); };
    expectFailure(quietly(1) + Calls{raised("Cannot read file: " + (source / tooLong).native()),
                                     "Vesk_hasPendingError() = 1"});
}

/// Tells which files of a directory have been opened since the watch was made.
class OpenWatch {
public:
    explicit OpenWatch(const fs::path& directory)
        : queue_(inotify_init1(IN_NONBLOCK)),
          watch_(inotify_add_watch(queue_, directory.c_str(), IN_OPEN)) {
        if (watch_ < 0) throw std::runtime_error("inotify failed");
    }
    ~OpenWatch() { close(queue_); }
    OpenWatch(const OpenWatch&) = delete;
    OpenWatch& operator=(const OpenWatch&) = delete;

    /// Returns the names in the order in which they were opened.
    std::vector<std::string> openedFiles() const {
        std::vector<std::string> names;
        alignas(inotify_event) char events[4096];
        const ssize_t size = read(queue_, events, sizeof events);
        for (ssize_t at = 0; at < size;) {
            const auto* const event = reinterpret_cast<const inotify_event*>(events + at);
            if (event->len > 0) names.emplace_back(event->name);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
        return names;
    }

private:
    int queue_;
    int watch_;
};

TEST_F(StreamBuilder, OpensNoFileAfterTheOneThatCannotBeRead) {
    writeTree(source, {{"1", "x"}, {"2", "x"}, {"3", "x"}, {"4", "x"}, {"5", "x"}});
    const OpenWatch watch(source);
    host.beforeHasPendingError = [&] { fs::remove(source / "3"); };
    expectFailure(quietly(5) + Calls{raised("Cannot read file: " + (source / "3").native()),
                                     "Vesk_hasPendingError() = 1"});
    EXPECT_EQ(watch.openedFiles(), (std::vector<std::string>{"1", "2"}));
}

TEST_F(StreamBuilder, StopsAtWhateverIsPendingAndRaisesNothingMore) {
    writeTree(source, {{"a", "x"}, {"b", "x"}});
    for (const std::size_t question : {0U, 1U, 2U, 3U, 4U}) {
        SCOPED_TRACE(question);
        std::size_t asked = 0;
        host.pendingClass.reset();
        host.beforeHasPendingError = [&] {
            if (asked++ == question) host.pendingClass = host.pendingMessage = "elsewhere";
        };
        expectFailure(quietly(question) + Calls{"Vesk_hasPendingError() = 1"});
    }
    EXPECT_EQ(host.raiseCount, 0);
}

}  // namespace
