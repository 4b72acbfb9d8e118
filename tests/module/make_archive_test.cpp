// SPDX-License-Identifier: MIT
// Tests of the two exported makeArchive functions: every message, with the whole sequence of calls
// that leads to it, and what is on disk afterwards.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "tests/support/archived_bytes.h"
#include "tests/support/gzip_bytes.h"
#include "tests/support/module_calls.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/recording_host.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tree.h"

namespace {

namespace fs = std::filesystem;
using namespace std::literals;
using namespace vesk::testing;

const char* const noPath = nullptr;
const std::string notPending = "Vesk_hasPendingError() = 0";
const std::string pending = "Vesk_hasPendingError() = 1";

std::string lines(const Calls& calls) {
    std::string text;
    for (const std::string& call : calls)
        text += call + "\n";
    return text;
}

class MakeArchive : public ::testing::TestWithParam<Container> {
protected:
    const Container container = GetParam();
    const TempDir dir;
    const std::string source = (dir / "source").native();
    const std::string archive = (dir / "archive").native();

    /// Returns the calls that check the archive's destination.
    static Calls judged(const std::string& path, bool overwrite) {
        return {converted(path), "modeIsOverwrite(mode) = "s + (overwrite ? "1" : "0")};
    }

    /// Returns the calls that build the stream of `entryCount` entries, including the last
    /// question.
    Calls built(std::size_t entryCount) const {
        return Calls{converted(source)} + Calls(1 + 2 * entryCount + 1, notPending);
    }

    /// Returns the calls that wrap a stream of `size` bytes.
    Calls wrapped(std::size_t size) const {
        if (container == Container::tar) return {};
        return {"crc32Update(ffffffff, " + std::to_string(size) + ")"};
    }

    /// Returns the archive that contains the TAR stream `tar`, which must fit one block.
    std::string holding(const std::string& tar) const {
        if (container == Container::tar) return tar;
        const auto size = static_cast<std::uint32_t>(tar.size());
        return "\x1F\x8B\x08\0\0\0\0\0\0\xFF\1"s + littleEndian(size, 2) + littleEndian(~size, 2) +
               tar + gzipTrailer(tar);
    }

    void make(bool overwrite = false) const {
        makeArchive(container, source.c_str(), archive.c_str(), overwrite);
    }

    /// Makes an archive once as the user that runs the tests. An ordinary user may be unable to
    /// load the module from where it was built, but can use it once it is loaded.
    void loadModule() const {
        const TempDir elsewhere;
        RecordingHost host;
        makeArchive(container, elsewhere.path().c_str(), (elsewhere / "archive").c_str());
        ASSERT_EQ(host.raiseCount, 0);
    }

    /// Runs `body` as an ordinary user in the directory, which is opened to all. Returns the calls
    /// that it made.
    std::string callsAsOrdinaryUser(const std::function<void()>& body) const {
        loadModule();
        fs::permissions(dir.path(), fs::perms::all);
        return asOrdinaryUser([&] {
            fs::current_path(dir.path());
            RecordingHost host;
            body();
            return lines(host.calls);
        });
    }
};

INSTANTIATE_TEST_SUITE_P(Archivers, MakeArchive, ::testing::Values(Container::tar, Container::tgz),
                         [](const auto& suite) {
                             return suite.param == Container::tar ? "Tar" : "Tgz";
                         });

TEST_P(MakeArchive, PerformsTheStepsOfASuccessInOrder) {
    writeTree(source, {{"a/b", "1"}, {"a.txt", ""}, {"a-b/c", std::string(600, 'x')}});
    RecordingHost host;
    make();
    EXPECT_EQ(host.calls, judged(archive, false) + built(3) + wrapped(4096));
    EXPECT_EQ(readFile(archive),
              holding(archivedEntry("a-b/c", std::string(600, 'x')) + archivedEntry("a.txt", "") +
                      archivedEntry("a/b", "1") + archivedEnd()));
}

TEST_P(MakeArchive, ArchivesASingleFileUnderItsOwnName) {
    writeFile(source, "hello world\n");
    RecordingHost host;
    make();
    EXPECT_EQ(host.calls, judged(archive, false) + built(1) + wrapped(2048));
    EXPECT_EQ(readFile(archive), holding(archivedEntry("source", "hello world\n") + archivedEnd()));
}

TEST_P(MakeArchive, ArchivesADirectoryWithoutFilesAsTheEndMarkerAlone) {
    fs::create_directories(source);
    RecordingHost host;
    make();
    EXPECT_EQ(host.calls, judged(archive, false) + built(0) + wrapped(1024));
    EXPECT_EQ(readFile(archive), holding(std::string(1024, '\0')));
}

TEST_P(MakeArchive, WritesTheWholeOfALargeArchive) {
    const std::string data(200000, 'x');
    writeFile(source, data);
    RecordingHost host;
    make();
    EXPECT_EQ(host.calls, judged(archive, false) + built(1) + wrapped(201728));
    // At most four blocks of 65535 bytes.
    EXPECT_EQ(fs::file_size(archive), container == Container::tar ? 201728U : 201766U);
}

TEST_P(MakeArchive, StoresTheLongestNameThatTwoFieldsHold) {
    const std::string prefix = std::string(100, 'p') + "/" + std::string(54, 'q');
    const std::string name(100, 'n');
    writeTree(source, {{prefix + "/" + name, ""}});
    RecordingHost host;
    make();
    EXPECT_EQ(host.raiseCount, 0);
    EXPECT_EQ(readFile(archive),
              holding(sealed(patched(archivedHeader(name, 0), 345, prefix)) + archivedEnd()));
}

TEST_P(MakeArchive, RequiresAnArchivePathBeforeAnythingElse) {
    writeFile(source, "x");
    for (const char* const path : {noPath, ""}) {
        for (const char* const sourcePath : {noPath, "", "missing", source.c_str()}) {
            RecordingHost host;
            makeArchive(container, sourcePath, path, true);
            EXPECT_EQ(host.calls, Calls{raised("Archive path is required")});
            EXPECT_EQ(host.pendingClass, "IOException");
            EXPECT_EQ(host.pendingMessage, "Archive path is required");
        }
    }
    EXPECT_EQ(readTree(dir.path()), (Tree{{"source", "x"}}));
}

TEST_P(MakeArchive, RefusesADestinationBeforeItLooksAtTheSource) {
    writeFile(archive, "old");
    fs::create_symlink("loop", dir / "loop");
    const std::string loop = dir / "loop";
    const std::string below = dir / "archive/below";
    struct Row {
        std::string path;
        bool overwrite;
        const char* message;
    };
    const Row rows[] = {
        {archive, false, "Archive already exists"},
        {loop, false, "Cannot inspect archive destination"},
        {loop, true, "Cannot inspect archive destination"},
        {below, false, "Cannot create archive parent directory"},
        {below, true, "Cannot create archive parent directory"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.path);
        for (const char* const sourcePath : {noPath, "", "missing", dir.path().c_str()}) {
            RecordingHost host;
            makeArchive(container, sourcePath, row.path.c_str(), row.overwrite);
            EXPECT_EQ(host.calls, judged(row.path, row.overwrite) + Calls{raised(row.message)});
        }
    }
    EXPECT_EQ(readTree(dir.path()), (Tree{{"archive", "old"}, {"loop?", ""}}));
}

TEST_P(MakeArchive, LeavesAnArchiveThatMayNotBeReplacedAsItIs) {
    writeFile(source, "new");
    writeFile(archive, "old");
    RecordingHost host;
    make();
    EXPECT_EQ(host.calls, judged(archive, false) + Calls{raised("Archive already exists")});
    EXPECT_EQ(readFile(archive), "old");
}

struct BadSource {
    const char* name;
    std::function<void(const std::string& source)> write;
    std::size_t questionsBefore;
    std::string message;
};

// Every message of the building except "Cannot read file", which names a path (below), and "TAR
// numeric field is too large", which is unreachable: no file that can be read is so large.
std::vector<BadSource> badSources() {
    return {
        {"missing", [](const std::string&) {}, 0, "Archive source does not exist"},
        {"fifo", [](const std::string& path) { mkfifo(path.c_str(), 0600); }, 0,
         "Archive source must be a file or directory"},
        {"dangling link",
         [](const std::string& path) {
             writeFile(path + "/a", "x");
             fs::create_symlink("nowhere", path + "/b");
         },
         0, "Cannot enumerate archive source"},
        {"too large",
         [](const std::string& path) {
             writeTree(path, {{"a", "x"}, {"b", ""}});
             fs::resize_file(path + "/b", 4294967296);
         },
         3, "ZIP entry is too large for ZIP32"},
        {"name too long",
         [](const std::string& path) {
             writeTree(path, {{"a", "x"}, {std::string(101, 'n'), "x"}});
         },
         4, "TAR entry name is too long"},
    };
}

TEST_P(MakeArchive, WritesNothingWhenTheStreamCannotBeBuilt) {
    for (const BadSource& bad : badSources()) {
        SCOPED_TRACE(bad.name);
        bad.write(source);
        const Calls failed = Calls{converted(source)} + Calls(bad.questionsBefore, notPending) +
                             Calls{raised(bad.message), pending, pending};
        const std::string fresh = dir / "made/deep/archive";
        {
            RecordingHost host;
            makeArchive(container, source.c_str(), fresh.c_str());
            EXPECT_EQ(host.calls, judged(fresh, false) + failed);
            EXPECT_EQ(host.pendingMessage, bad.message);
        }
        // The parents stay although no archive is written.
        EXPECT_EQ(readTree(dir / "made"), (Tree{{"deep/", ""}}));

        writeFile(archive, "old");
        RecordingHost host;
        make(true);
        EXPECT_EQ(host.calls, judged(archive, true) + failed);
        EXPECT_EQ(host.raiseCount, 1);
        EXPECT_EQ(readFile(archive), "old");
        fs::remove_all(source);
        fs::remove_all(dir / "made");
    }
}

TEST_P(MakeArchive, RequiresASourcePathOnceTheDestinationIsPrepared) {
    writeFile(archive, "old");
    for (const char* const path : {noPath, ""}) {
        RecordingHost host;
        makeArchive(container, path, archive.c_str(), true);
        EXPECT_EQ(host.calls,
                  (judged(archive, true) + Calls{raised("Source path is required"), pending}));
        EXPECT_EQ(readFile(archive), "old");
    }
}

TEST_P(MakeArchive, NamesAnUnreadableSourceFileAsItWasGiven) {
    writeTree(source, {{"a", "x"}, {"b", "x"}, {"c", "x"}});
    fs::permissions(dir / "source/b", fs::perms::none);
    struct Row {
        std::string source;
        std::string file;
    };
    const Row rows[] = {
        {source, source + "/b"},
        {"source", "source/b"},
        {"./source/", "./source/b"},
        {"source//.", "source//./b"},
    };
    for (const Row& row : rows) {
        const std::string calls =
            callsAsOrdinaryUser([&] { makeArchive(container, row.source.c_str(), "archive"); });
        EXPECT_EQ(calls, lines(judged("archive", false) + Calls{converted(row.source)} +
                               Calls(3, notPending) +
                               Calls{raised("Cannot read file: " + row.file), pending, pending}));
    }
    EXPECT_FALSE(fs::exists(archive));
}

TEST_P(MakeArchive, CannotInspectADestinationThatTheUserMayNotSearch) {
    fs::create_directory(dir / "closed");
    fs::permissions(dir / "closed", fs::perms::none);
    for (const bool overwrite : {false, true}) {
        const std::string calls = callsAsOrdinaryUser(
            [&] { makeArchive(container, noPath, "closed/archive", overwrite); });
        EXPECT_EQ(calls, lines(judged("closed/archive", overwrite) +
                               Calls{raised("Cannot inspect archive destination")}));
    }
}

TEST_P(MakeArchive, NeedsNoParentForABareFileName) {
    writeFile(source, "x");
    const std::string calls =
        callsAsOrdinaryUser([&] { makeArchive(container, source.c_str(), "archive"); });
    EXPECT_EQ(calls, lines(judged("archive", false) + built(1) + wrapped(2048)));
    EXPECT_EQ(readFile(archive), holding(archivedEntry("source", "x") + archivedEnd()));
}

TEST_P(MakeArchive, CreatesMissingParentsOfTheArchive) {
    writeFile(source, "x");
    const std::string path = dir / "a/b/archive";
    RecordingHost host;
    makeArchive(container, source.c_str(), path.c_str());
    EXPECT_EQ(host.calls, judged(path, false) + built(1) + wrapped(2048));
    EXPECT_EQ(readFile(path), holding(archivedEntry("source", "x") + archivedEnd()));
}

TEST_P(MakeArchive, CannotCreateAnArchiveInPlaceOfADirectory) {
    writeFile(source, "x");
    writeFile(dir / "archive" / "old", "old");
    RecordingHost host;
    make(true);
    EXPECT_EQ(host.calls, judged(archive, true) + built(1) + wrapped(2048) +
                              Calls{raised("Cannot create archive")});
    EXPECT_EQ(readTree(archive), (Tree{{"old", "old"}}));
}

TEST_P(MakeArchive, CannotCreateAnArchiveWithoutPermission) {
    writeFile(source, "x");
    writeFile(archive, "old");
    fs::permissions(archive, fs::perms(0444));
    EXPECT_EQ(callsAsOrdinaryUser([&] { make(true); }),
              lines(judged(archive, true) + built(1) + wrapped(2048) +
                    Calls{raised("Cannot create archive")}));
    EXPECT_EQ(readFile(archive), "old");
}

TEST_P(MakeArchive, CannotFinalizeAnArchiveOnAFullDevice) {
    // The link protects the device from a writer that would remove or rename what it cannot write.
    fs::create_symlink("/dev/full", archive);
    // A small archive fails when it is closed, a large one while it is written.
    for (const std::size_t size : {0U, 500000U}) {
        writeFile(source, std::string(size, 'x'));
        RecordingHost host;
        make(true);
        EXPECT_EQ(host.calls, judged(archive, true) + built(1) +
                                  wrapped(size == 0 ? 1536 : 501760) +
                                  Calls{raised("Cannot finalize archive")});
    }
}

TEST_P(MakeArchive, LeavesThePartThatWasWrittenBeforeTheDiskWasFull) {
    writeFile(source, std::string(20000, 'x'));
    const std::string calls = callsAsOrdinaryUser([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{10000, 10000};
        setrlimit(RLIMIT_FSIZE, &limit);
        make();
    });
    EXPECT_EQ(calls, lines(judged(archive, false) + built(1) + wrapped(22016) +
                           Calls{raised("Cannot finalize archive")}));
    const std::string tar =
        archivedEntry("source", std::string(20000, 'x')) + std::string(1024, '\0');
    EXPECT_EQ(readFile(archive), holding(tar).substr(0, 10000));
}

// Changes of the destination while the stream is being built, right before the last question.
class MakeArchiveMeanwhile : public MakeArchive {
protected:
    const std::string path = (dir / "parent/archive").native();

    Calls makeWhile(const std::function<void()>& change) const {
        writeFile(source, "x");
        RecordingHost host;
        int question = 0;
        host.beforeHasPendingError = [&] {
            if (++question == 4) change();
        };
        makeArchive(container, source.c_str(), path.c_str());
        EXPECT_EQ(question, 4);
        return host.calls;
    }
};

INSTANTIATE_TEST_SUITE_P(Archivers, MakeArchiveMeanwhile,
                         ::testing::Values(Container::tar, Container::tgz), [](const auto& suite) {
                             return suite.param == Container::tar ? "Tar" : "Tgz";
                         });

TEST_P(MakeArchiveMeanwhile, CannotCreateAParentThatBecameAFile) {
    const Calls calls = makeWhile([&] {
        fs::remove(dir / "parent");
        writeFile(dir / "parent", "in the way");
    });
    EXPECT_EQ(calls, judged(path, false) + built(1) + wrapped(2048) +
                         Calls{raised("Cannot create archive parent directory")});
    EXPECT_EQ(readFile(dir / "parent"), "in the way");
}

TEST_P(MakeArchiveMeanwhile, RecreatesAParentThatWasRemoved) {
    const Calls calls = makeWhile([&] { fs::remove(dir / "parent"); });
    EXPECT_EQ(calls, judged(path, false) + built(1) + wrapped(2048));
    EXPECT_EQ(readFile(path), holding(archivedEntry("source", "x") + archivedEnd()));
}

// The destination is checked only once: an archive that appears later is overwritten.
TEST_P(MakeArchiveMeanwhile, WritesOverAnArchiveThatAppeared) {
    const Calls calls = makeWhile([&] { writeFile(path, std::string(9999, 'o')); });
    EXPECT_EQ(calls, judged(path, false) + built(1) + wrapped(2048));
    EXPECT_EQ(readFile(path), holding(archivedEntry("source", "x") + archivedEnd()));
}

TEST_P(MakeArchiveMeanwhile, StopsAtAnExceptionThatIsPendingAfterTheBuild) {
    writeFile(source, "x");
    RecordingHost host;
    int question = 0;
    host.beforeHasPendingError = [&] {
        if (++question == 4) host.pendingClass = host.pendingMessage = "elsewhere";
    };
    make();
    EXPECT_EQ(host.calls, judged(archive, false) + Calls{converted(source)} + Calls(3, notPending) +
                              Calls{pending});
    EXPECT_EQ(host.raiseCount, 0);
    EXPECT_FALSE(fs::exists(archive));
}

TEST_P(MakeArchive, StopsSilentlyAtAnExceptionThatWasPendingBefore) {
    writeFile(source, "x");
    for (const bool overwrite : {false, true}) {
        if (overwrite) writeFile(archive, "old");
        const Tree before = readTree(dir.path());
        RecordingHost host;
        host.pendingClass = host.pendingMessage = "earlier";
        make(overwrite);
        EXPECT_EQ(host.calls,
                  (judged(archive, overwrite) + Calls{converted(source), pending, pending}));
        EXPECT_EQ(host.raiseCount, 0);
        EXPECT_EQ(host.pendingMessage, "earlier");
        EXPECT_EQ(readTree(dir.path()), before);
    }
}

// The method neither asks for a pending exception on entry nor clears it.
TEST_P(MakeArchive, RaisesDespiteAPendingException) {
    RecordingHost host;
    host.pendingClass = host.pendingMessage = "earlier";
    makeArchive(container, source.c_str(), "");
    EXPECT_EQ(host.calls, Calls{raised("Archive path is required")});
    EXPECT_EQ(host.pendingMessage, "earlier");
}

TEST_P(MakeArchive, ReplacesAnOldArchiveInPlace) {
    writeFile(source, "x");
    writeFile(archive, std::string(9999, 'o'));
    fs::permissions(archive, fs::perms(0604));
    fs::create_hard_link(archive, dir / "other-name");
    RecordingHost host;
    make(true);
    EXPECT_EQ(host.calls, judged(archive, true) + built(1) + wrapped(2048));
    const std::string expected = holding(archivedEntry("source", "x") + archivedEnd());
    EXPECT_EQ(readFile(archive), expected);
    EXPECT_EQ(readFile(dir / "other-name"), expected);
    EXPECT_EQ(fs::status(archive).permissions(), fs::perms(0604));
}

TEST_P(MakeArchive, WritesThroughALinkEvenIfItLeadsNowhereYet) {
    writeFile(source, "x");
    fs::create_symlink("target", archive);
    RecordingHost host;
    make();
    EXPECT_EQ(host.calls, judged(archive, false) + built(1) + wrapped(2048));
    EXPECT_TRUE(fs::is_symlink(archive));
    EXPECT_EQ(readFile(dir / "target"), holding(archivedEntry("source", "x") + archivedEnd()));
}

TEST_P(MakeArchive, OmitsANewArchiveWithinItsSource) {
    writeFile(dir / "source" / "z", "x");
    const std::string path = source + "/new/archive";
    RecordingHost host;
    makeArchive(container, source.c_str(), path.c_str());
    EXPECT_EQ(host.calls, judged(path, false) + built(1) + wrapped(2048));
    EXPECT_EQ(readFile(path), holding(archivedEntry("z", "x") + archivedEnd()));
}

TEST_P(MakeArchive, ArchivesTheOldContentOfAnArchiveWithinItsSource) {
    writeTree(source, {{"archive", "old"}, {"z", "x"}});
    const std::string path = source + "/archive";
    RecordingHost host;
    makeArchive(container, source.c_str(), path.c_str(), true);
    EXPECT_EQ(host.calls, judged(path, true) + built(2) + wrapped(3072));
    EXPECT_EQ(readFile(path),
              holding(archivedEntry("archive", "old") + archivedEntry("z", "x") + archivedEnd()));
}

TEST_P(MakeArchive, PassesAnExceptionOnWithoutRaisingOrWriting) {
    writeTree(source, {{"a", "x"}, {"b", "y"}});
    writeFile(archive, "old");
    const Calls all = judged(archive, true) + built(2);
    // The conversions and questions among those calls. A question that throws is not recorded.
    for (const std::size_t call : {0U, 2U, 3U, 4U, 5U, 6U, 7U, 8U}) {
        SCOPED_TRACE(call);
        RecordingHost host;
        const auto throwAtCall = [&](std::size_t made) {
            if (made == call) throw std::bad_alloc();
        };
        host.beforeRuntimeFsPath = [&](const char*) { throwAtCall(host.calls.size() - 1); };
        host.beforeHasPendingError = [&] { throwAtCall(host.calls.size()); };
        EXPECT_THROW(make(true), std::bad_alloc);
        const bool isConversion = call <= 2;
        EXPECT_EQ(
            host.calls,
            Calls(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(call + isConversion)));
        EXPECT_EQ(readFile(archive), "old");
    }
}

}  // namespace
