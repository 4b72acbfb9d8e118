// SPDX-License-Identifier: MIT
// Tests of the two exported unpackArchive functions: every message, with the whole sequence of
// calls that leads to it, and what is on disk afterwards.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/gzip_bytes.h"
#include "tests/support/module_calls.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/recording_host.h"
#include "tests/support/tar_bytes.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tree.h"

namespace {

namespace fs = std::filesystem;
using namespace std::literals;
using namespace vesk::testing;

const char* const noPath = nullptr;

class UnpackArchive : public ::testing::TestWithParam<Container> {
protected:
    const Container container = GetParam();
    const TempDir dir;
    const std::string archive = (dir / "archive").native();
    const std::string destination = (dir / "out").native();

    /// Stores the archive. Returns the call that decodes it, if there is one.
    Calls store(const std::string& tar) const {
        if (container == Container::tar) {
            writeFile(archive, tar);
            return {};
        }
        writeFile(archive, gzipMember(tar));
        return {"inflateRaw(compressed=" + std::to_string(rawDeflate(tar).size()) +
                ", uncompressed=" + std::to_string(tar.size()) + ", crc=0, error=) = 1"};
    }

    /// Stores the archive. Returns the calls up to the question for the mode.
    Calls storeAndRead(const std::string& tar, bool overwrite = false) const {
        return Calls{converted(archive), "Vesk_hasPendingError() = 0"} + store(tar) +
               Calls{"modeIsOverwrite(mode) = "s + (overwrite ? "1" : "0")};
    }

    /// Returns the calls that prepare staging; the last one has the given answer.
    Calls prepare(bool overwrite, const char* answer) const {
        return {converted(destination), "prepareExtractionStaging(" + destination +
                                            ", overwrite=" + (overwrite ? "1" : "0") +
                                            ", staging=, error=) = " + answer};
    }

    std::string commit(const char* answer) const {
        return "commitExtractionStaging(STAGING, " + destination + ", error=) = " + answer;
    }

    void unpack(bool overwrite = false) const {
        unpackArchive(container, archive.c_str(), destination.c_str(), overwrite);
    }

    /// Unpacks once as the user that runs the tests. An ordinary user may be unable to load the
    /// module from where it was built, but can use it once it is loaded.
    void loadModule() const {
        const TempDir elsewhere;
        RecordingHost host;
        store(tarEntry("a", "", '5') + tarEnd());
        unpackArchive(container, archive.c_str(), (elsewhere / "out").c_str());
        ASSERT_EQ(host.raiseCount, 0);
    }
};

INSTANTIATE_TEST_SUITE_P(Archivers, UnpackArchive,
                         ::testing::Values(Container::tar, Container::tgz), [](const auto& suite) {
                             return suite.param == Container::tar ? "Tar" : "Tgz";
                         });

TEST_P(UnpackArchive, PerformsTheStepsOfASuccessInOrder) {
    const Calls read = storeAndRead(tarEntry("d/", "", '5') + tarEntry("d/a/", "x") +
                                    tarEntry("b", "y") + tarEnd());
    RecordingHost host;
    unpack();
    EXPECT_EQ(host.calls, (read + prepare(false, "1") +
                           Calls{converted("d"), converted("d"), converted("d/a"), converted("d/a"),
                                 converted("b"), converted("b"), commit("1")}));
    EXPECT_EQ(readTree(destination), (Tree{{"b", "y"}, {"d/a", "x"}}));
    EXPECT_FALSE(fs::exists(host.staging));
}

TEST_P(UnpackArchive, PassesTheOverwriteAnswerOn) {
    writeFile(dir / "out" / "old", "old");
    const Calls read = storeAndRead(tarEntry("a", "x") + tarEnd(), true);
    RecordingHost host;
    unpack(true);
    EXPECT_EQ(host.calls,
              (read + prepare(true, "1") + Calls{converted("a"), converted("a"), commit("1")}));
    EXPECT_EQ(readTree(destination), (Tree{{"a", "x"}}));
}

TEST_P(UnpackArchive, CommitsAnArchiveWithoutEntriesAtOnce) {
    const Calls read = storeAndRead(tarEnd());
    RecordingHost host;
    unpack();
    EXPECT_EQ(host.calls, (read + prepare(false, "1") + Calls{commit("1")}));
    EXPECT_EQ(readTree(destination), Tree());
    EXPECT_TRUE(fs::is_directory(destination));
}

TEST_P(UnpackArchive, FollowsASymbolicLinkToTheArchive) {
    const Calls read = storeAndRead(tarEntry("a", "x") + tarEnd());
    fs::rename(archive, dir / "real");
    fs::create_symlink("real", archive);
    RecordingHost host;
    unpack();
    EXPECT_EQ(host.calls,
              (read + prepare(false, "1") + Calls{converted("a"), converted("a"), commit("1")}));
    EXPECT_EQ(readTree(destination), (Tree{{"a", "x"}}));
}

TEST_P(UnpackArchive, ReadsBackWhatMakeArchiveWrote) {
    const std::string big(200000, 'b');
    writeFile(dir / "source" / "a", "x");
    writeFile(dir / "source" / "d" / "big", big);
    writeFile(dir / "source" / "d" / "empty", "");
    RecordingHost host;
    makeArchive(container, (dir / "source").c_str(), archive.c_str());
    unpack();
    EXPECT_EQ(host.raiseCount, 0);
    EXPECT_EQ(readTree(destination), readTree(dir / "source"));
}

TEST_P(UnpackArchive, RequiresAnArchivePathBeforeAnythingElse) {
    const char* const destinations[] = {noPath, "", destination.c_str()};
    for (const char* const path : {noPath, ""}) {
        for (const char* const destinationPath : destinations) {
            RecordingHost host;
            unpackArchive(container, path, destinationPath, true);
            EXPECT_EQ(host.calls, Calls{raised("Archive path is required")});
            EXPECT_EQ(host.pendingClass, "IOException");
            EXPECT_EQ(host.pendingMessage, "Archive path is required");
        }
    }
    EXPECT_EQ(readTree(dir.path()), Tree());
}

// The method neither asks for a pending exception on entry nor clears it.
TEST_P(UnpackArchive, RaisesDespiteAPendingException) {
    RecordingHost host;
    host.pendingClass = host.pendingMessage = "earlier";
    unpackArchive(container, "", "");
    EXPECT_EQ(host.calls, Calls{raised("Archive path is required")});
    EXPECT_EQ(host.pendingMessage, "earlier");
}

TEST_P(UnpackArchive, StopsSilentlyAtAnExceptionThatIsPendingAfterTheRead) {
    store(tarEntry("a", "x") + tarEnd());
    RecordingHost host;
    host.pendingClass = host.pendingMessage = "earlier";
    unpack();
    EXPECT_EQ(host.calls, (Calls{converted(archive), "Vesk_hasPendingError() = 1"}));
    EXPECT_EQ(host.raiseCount, 0);
    EXPECT_FALSE(fs::exists(destination));
}

TEST_P(UnpackArchive, AcceptsOnlyARegularFileAsAnArchive) {
    fs::create_directory(dir / "directory");
    fs::create_symlink("directory", dir / "link-to-directory");
    fs::create_symlink("missing", dir / "dangling");
    fs::create_symlink("loop", dir / "loop");
    writeFile(dir / "file", "x");
    ASSERT_EQ(mknod((dir / "socket").c_str(), S_IFSOCK | 0666, 0), 0);
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0666), 0);
    // With a writer at its other end, a FIFO that is opened by mistake does not block the test.
    const int fifo = open((dir / "fifo").c_str(), O_RDWR);
    const std::string paths[] = {
        dir / "missing",  dir / "directory",      dir / "link-to-directory",
        dir / "dangling", dir / "loop",           dir / "fifo",
        dir / "socket",   dir / "file/below",     dir / "missing/x",
        "/dev/null",      std::string(5000, 'n'), dir / "file/",
    };
    for (const std::string& path : paths) {
        SCOPED_TRACE(path);
        // A missing destination is not reported instead.
        for (const char* const destinationPath : {destination.c_str(), "", noPath}) {
            RecordingHost host;
            unpackArchive(container, path.c_str(), destinationPath);
            EXPECT_EQ(host.calls, (Calls{converted(path), raised("Archive file does not exist")}));
        }
    }
    close(fifo);
    EXPECT_FALSE(fs::exists(destination));
}

TEST_P(UnpackArchive, RefusesAnArchiveThatIsTooLargeToRead) {
    writeFile(archive, "");
    fs::resize_file(archive, 4294967296);
    RecordingHost host;
    unpack();
    EXPECT_EQ(host.calls, (Calls{converted(archive), raised("ZIP entry is too large for ZIP32"),
                                 "Vesk_hasPendingError() = 1"}));
    EXPECT_FALSE(fs::exists(destination));
}

std::string lines(const Calls& calls) {
    std::string text;
    for (const std::string& call : calls)
        text += call + "\n";
    return text;
}

TEST_P(UnpackArchive, NamesAnArchiveThatCannotBeReadExactlyAsItWasGiven) {
    loadModule();
    fs::permissions(dir.path(), fs::perms::all);
    fs::permissions(archive, fs::perms::none);
    for (const std::string& path : {archive, "archive"s, ".//archive"s}) {
        const std::string calls = asOrdinaryUser([&] {
            fs::current_path(dir.path());
            RecordingHost host;
            unpackArchive(container, path.c_str(), destination.c_str());
            return lines(host.calls);
        });
        EXPECT_EQ(calls, lines({converted(path), raised("Cannot read file: " + path),
                                "Vesk_hasPendingError() = 1"}));
    }
    EXPECT_FALSE(fs::exists(destination));
}

TEST_P(UnpackArchive, FindsNoArchiveWhereItsStatusCannotBeRead) {
    loadModule();
    fs::permissions(dir.path(), fs::perms::none);
    const std::string calls = asOrdinaryUser([&] {
        RecordingHost host;
        unpack();
        return lines(host.calls);
    });
    EXPECT_EQ(calls, lines({converted(archive), raised("Archive file does not exist")}));
}

TEST_P(UnpackArchive, RequiresADestinationOnceTheArchiveIsRead) {
    // The content of the TAR stream is not examined before.
    for (const std::string& tar : {tarEntry("a", "x") + tarEnd(), "not an archive"s}) {
        const Calls read = storeAndRead(tar, true);
        for (const char* const destinationPath : {noPath, ""}) {
            RecordingHost host;
            unpackArchive(container, archive.c_str(), destinationPath, true);
            EXPECT_EQ(host.calls, read + Calls{raised("Destination path is required")});
        }
    }
    EXPECT_EQ(readTree(dir.path()).size(), 1U);
}

TEST_P(UnpackArchive, RaisesTheRuntimesRefusalOfTheDestinationUnchanged) {
    // The fault of the archive would be found only later.
    const Calls read = storeAndRead("not an archive");
    for (const std::string message : {"refused: %s", ""}) {
        RecordingHost host;
        host.prepareFailure = message;
        unpack();
        EXPECT_EQ(host.calls, (read + prepare(false, "0") + Calls{raised(message)}));
        EXPECT_EQ(host.pendingMessage, message);
    }
    EXPECT_FALSE(fs::exists(destination));
}

TEST_P(UnpackArchive, RaisesAnEmptyTextWhenTheRuntimeRefusesWithoutAMessage) {
    const Calls read = storeAndRead(tarEntry("a", "x") + tarEnd());
    RecordingHost host;
    host.prepareFailure = "";
    host.failsWithoutText = true;
    unpack();
    EXPECT_EQ(host.calls, (read + prepare(false, "0") + Calls{raised("")}));
}

TEST_P(UnpackArchive, LeavesADestinationThatMayNotBeReplacedAsItIs) {
    writeFile(dir / "out" / "old", "old");
    const Calls read = storeAndRead("not an archive");
    const Tree before = readTree(dir.path());
    RecordingHost host;
    unpack();
    EXPECT_EQ(host.calls,
              (read + prepare(false, "0") + Calls{raised("Destination already exists")}));
    EXPECT_EQ(readTree(dir.path()), before);
}

TEST_P(UnpackArchive, RemovesTheStagingTreeWhenTheCommitFails) {
    writeFile(dir / "out" / "old", "old");
    const Calls read = storeAndRead(tarEntry("a", "x") + tarEnd(), true);
    const Tree before = readTree(dir.path());
    for (const std::string message : {"not committed", ""}) {
        RecordingHost host;
        host.commitFailure = message;
        unpack(true);
        EXPECT_EQ(host.calls, (read + prepare(true, "1") +
                               Calls{converted("a"), converted("a"), commit("0"),
                                     "removeExtractionTree(STAGING)", raised(message)}));
        EXPECT_EQ(readTree(dir.path()), before);
    }
}

struct BadArchive {
    const char* name;
    std::string tar;
    Calls conversions;
    const char* message;
};

// Every message of the extraction except "Cannot finalize TAR entry", which needs a full disk
// (below), and "TAR entry is too large for this platform", which is unreachable where sizes have 64
// bits.
std::vector<BadArchive> badArchives() {
    const std::string a = tarEntry("a", "x");
    const Calls twoOfA = {converted("a"), converted("a")};
    const Calls twoOfB = {converted("b"), converted("b")};
    return {
        {"empty", "", {}, "TAR archive has no end marker"},
        {"no end marker", a, twoOfA, "TAR archive has no end marker"},
        {"checksum", a + withSum(tarHeader("b"), 1), twoOfA, "Invalid TAR header checksum"},
        {"name refused as text", a + tarEntry("/etc/x", ""), twoOfA, "Unsafe TAR entry name"},
        {"name refused once normalised", a + tarEntry("../x", ""),
         twoOfA + Calls{converted("../x")}, "Unsafe TAR entry name"},
        {"size", a + sealed(patched(tarHeader("b"), 124, "x")), twoOfA + Calls{converted("b")},
         "Invalid TAR entry size"},
        {"data", a + tarHeader("b", 1), twoOfA + Calls{converted("b")}, "Truncated TAR entry"},
        {"directory", a + tarEntry("a", "", '5'), twoOfA + twoOfA, "Cannot create TAR directory"},
        {"type", a + tarEntry("b", "", '2'), twoOfA + twoOfB, "Unsupported TAR entry type"},
        {"parent", a + tarEntry("a/b", ""), twoOfA + Calls{converted("a/b"), converted("a/b")},
         "Cannot create TAR entry directory"},
        {"file", tarEntry("b", "", '5') + tarEntry("b", ""), twoOfB + twoOfB,
         "Cannot write TAR entry"},
        {"padding", a + tarHeader("b", 1) + "x", twoOfA + twoOfB, "Truncated TAR entry padding"},
    };
}

TEST_P(UnpackArchive, RemovesTheStagingTreeWhenTheExtractionFails) {
    writeFile(dir / "out" / "old", "old");
    for (const BadArchive& bad : badArchives()) {
        SCOPED_TRACE(bad.name);
        const Calls read = storeAndRead(bad.tar, true);
        const Tree before = readTree(dir.path());
        RecordingHost host;
        unpack(true);
        const Calls failed = {"removeExtractionTree(STAGING)", raised(bad.message)};
        EXPECT_EQ(host.calls, read + prepare(true, "1") + bad.conversions + failed);
        EXPECT_EQ(host.raiseCount, 1);
        EXPECT_EQ(readTree(dir.path()), before);
    }
}

TEST_P(UnpackArchive, RemovesTheStagingTreeWhenTheDiskIsFull) {
    loadModule();
    fs::permissions(dir.path(), fs::perms::all);
    const Calls read = storeAndRead(tarEntry("a", std::string(2000, 'x')) + tarEnd());
    const std::string calls = asOrdinaryUser([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{1000, 1000};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return "setrlimit failed"s;
        RecordingHost host;
        unpack();
        return lines(host.calls);
    });
    EXPECT_EQ(calls, lines(read + prepare(false, "1") +
                           Calls{converted("a"), converted("a"), "removeExtractionTree(STAGING)",
                                 raised("Cannot finalize TAR entry")}));
    EXPECT_EQ(readTree(dir.path()).size(), 1U);
}

TEST_P(UnpackArchive, PassesAnExceptionOnWithoutRaisingOrRemoving) {
    const Calls read = storeAndRead(tarEntry("a", "x") + tarEntry("b", "y") + tarEnd());
    const Calls upToB =
        read + prepare(false, "1") + Calls{converted("a"), converted("a"), converted("b")};
    RecordingHost host;
    host.beforeRuntimeFsPath = [](const char* text) {
        if (text == "b"s) throw std::bad_alloc();
    };
    EXPECT_THROW(unpack(), std::bad_alloc);
    EXPECT_EQ(host.calls, upToB);
    EXPECT_EQ(readTree(host.staging), (Tree{{"a", "x"}}));
    EXPECT_FALSE(fs::exists(destination));
}

// Faults of the gzip member itself, found before the mode is asked for.
class UnpackTgzArchive : public ::testing::Test {
protected:
    const TempDir dir;
    const std::string archive = (dir / "archive").native();
    const std::string destination = (dir / "out").native();
    RecordingHost host;

    void unpack(const std::string& member, bool withDestination = true) const {
        writeFile(archive, member);
        unpackArchive(Container::tgz, archive.c_str(),
                      withDestination ? destination.c_str() : nullptr, true);
    }

    Calls readThen(const Calls& calls) const {
        return Calls{converted(archive), "Vesk_hasPendingError() = 0"} + calls;
    }
};

TEST_F(UnpackTgzArchive, RaisesEveryFaultOfTheMemberBeforeAnythingIsStaged) {
    const std::string tar = tarEntry("a", "x") + tarEnd();
    const std::string zeros(8, '\0');
    const std::string stored = "\x01\x05\0\xFA\xFFhello"s;
    struct Row {
        const char* name;
        std::string member;
        Calls calls;
        const char* message;
    };
    const Row rows[] = {
        {"empty", "", {}, "Invalid gzip stream"},
        {"a TAR archive", tar, {}, "Invalid gzip stream"},
        {"17 bytes", gzipHeader() + zeros.substr(1), {}, "Invalid gzip stream"},
        {"flags", gzipHeader(32) + zeros, {}, "Invalid gzip flags"},
        {"extra field", gzipHeader(4) + zeros, {}, "Truncated gzip extra field"},
        {"file name", gzipHeader(8) + zeros, {}, "Truncated gzip file name"},
        {"comment", gzipHeader(16) + zeros, {}, "Truncated gzip comment"},
        {"header checksum cut short", gzipHeader(2) + zeros, {}, "Truncated gzip header checksum"},
        {"header checksum",
         gzipHeader(2) + "\0\0"s + stored + gzipTrailer("hello"),
         {"crc32Update(ffffffff, 10)"},
         "Invalid gzip header checksum"},
        {"18 bytes", gzipHeader() + zeros, {}, "Missing gzip DEFLATE payload"},
        {"checked header alone",
         withHeaderChecksum(gzipHeader(2)) + zeros,
         {"crc32Update(ffffffff, 10)"},
         "Missing gzip DEFLATE payload"},
        {"crc",
         gzipHeader() + stored + "\0\0\0\0\5\0\0\0"s,
         {"inflateRaw(compressed=10, uncompressed=5, crc=0, error=) = 1"},
         "Invalid gzip checksum"},
        {"two members",
         gzipHeader() + stored + gzipTrailer("hello") + gzipHeader() + stored +
             gzipTrailer("hello"),
         {"inflateRaw(compressed=38, uncompressed=5, crc=0, error=) = 0"},
         "Unexpected data after DEFLATE stream"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        // Neither the destination, missing or not, nor the mode is examined yet.
        for (const bool withDestination : {true, false}) {
            host.calls.clear();
            host.pendingClass.reset();
            unpack(row.member, withDestination);
            EXPECT_EQ(host.calls, readThen(row.calls + Calls{raised(row.message)}));
        }
        EXPECT_FALSE(fs::exists(destination));
    }
}

TEST_F(UnpackTgzArchive, RaisesTheInflatersMessageUnchanged) {
    for (const std::string message : {"as the inflater says: %s", ""}) {
        host.calls.clear();
        host.pendingClass.reset();
        host.inflateFailure = message;
        unpack(gzipHeader() + "p" + std::string(8, '\0'));
        EXPECT_EQ(host.calls,
                  readThen({"inflateRaw(compressed=1, uncompressed=0, crc=0, error=) = 0",
                            raised(message)}));
        EXPECT_EQ(host.pendingMessage, message);
    }
}

// The method has one error text. What the inflater leaves in it on success stays there until it is
// replaced.
TEST_F(UnpackTgzArchive, PassesTheInflatersTextOnToStagingAndCommit) {
    host.inflateRemark = "a remark";
    unpack(gzipMember(tarEnd()));
    const std::string payload = std::to_string(rawDeflate(tarEnd()).size());
    EXPECT_EQ(
        host.calls,
        readThen({"inflateRaw(compressed=" + payload + ", uncompressed=512, crc=0, error=) = 1",
                  "modeIsOverwrite(mode) = 1", converted(destination),
                  "prepareExtractionStaging(" + destination +
                      ", overwrite=1, staging=, error=a remark) = 1",
                  "commitExtractionStaging(STAGING, " + destination + ", error=a remark) = 1"}));
    EXPECT_EQ(readTree(destination), Tree());
}

TEST_F(UnpackTgzArchive, RaisesTheInflatersTextWhenTheRuntimeRefusesWithoutAMessage) {
    host.inflateRemark = "a remark";
    host.failsWithoutText = true;
    host.prepareFailure = "";
    unpack(gzipMember(tarEntry("a", "x") + tarEnd()));
    EXPECT_EQ(host.pendingMessage, "a remark");
    EXPECT_EQ(host.calls.back(), raised("a remark"));

    host.pendingClass.reset();
    host.prepareFailure.reset();
    host.commitFailure = "";
    unpack(gzipMember(tarEntry("a", "x") + tarEnd()));
    EXPECT_EQ(host.pendingMessage, "a remark");
    EXPECT_EQ(host.calls.back(), raised("a remark"));
    EXPECT_EQ(host.raiseCount, 2);
}

TEST_F(UnpackTgzArchive, RaisesItsOwnMessageInPlaceOfTheInflatersText) {
    const std::string bad = tarEntry("a", "x", '2') + tarEnd();
    host.inflateRemark = "a remark";
    unpack(gzipMember(bad));
    EXPECT_EQ(host.pendingMessage, "Unsupported TAR entry type");

    host.pendingClass.reset();
    host.inflateCrc = 0;
    unpack(gzipMember(bad));
    EXPECT_EQ(host.pendingMessage, "Invalid gzip checksum");
}

TEST_F(UnpackTgzArchive, ChecksAHeaderChecksumBeforeItInflates) {
    const std::string tar = tarEntry("a", "x") + tarEnd();
    unpack(gzipMember(tar, withHeaderChecksum(gzipHeader(2 | 8) + "name\0"s)));
    const std::string payload = std::to_string(rawDeflate(tar).size());
    EXPECT_EQ(
        host.calls,
        readThen(
            {"crc32Update(ffffffff, 15)",
             "inflateRaw(compressed=" + payload + ", uncompressed=1536, crc=0, error=) = 1",
             "modeIsOverwrite(mode) = 1", converted(destination),
             "prepareExtractionStaging(" + destination + ", overwrite=1, staging=, error=) = 1",
             converted("a"), converted("a"),
             "commitExtractionStaging(STAGING, " + destination + ", error=) = 1"}));
    EXPECT_EQ(readTree(destination), (Tree{{"a", "x"}}));
}

TEST_F(UnpackTgzArchive, RefusesAStreamWithAWrongCrc) {
    std::string member = gzipMember(tarEntry("a", "x") + tarEnd());
    member[member.size() - 8] = static_cast<char>(member[member.size() - 8] ^ 1);
    unpack(member);
    EXPECT_EQ(host.calls.back(), raised("Invalid gzip checksum"));
    EXPECT_EQ(host.calls.size(), 4U);
    EXPECT_FALSE(fs::exists(destination));
}

}  // namespace
