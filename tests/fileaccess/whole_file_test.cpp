// SPDX-License-Identifier: MIT
// Tests of reading a whole file: which sizes are accepted, both messages, and a file that changes
// between the size query and the read.
#include "fileaccess/whole_file.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/buffer_text.h"
#include "tests/support/open_files.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/recording_host.h"
#include "tests/support/temp_dir.h"

namespace {

/// Called before a seek with the given `whence`; false makes the seek fail.
std::function<bool(int whence)> beforeSeek;

bool seekFails(int whence) {
    if (!beforeSeek || beforeSeek(whence)) return false;
    errno = EIO;
    return true;
}

}  // namespace

// File streams seek with one of these two functions: libstdc++ with the first, libc++ with the
// second. They take precedence over those of the C library.
extern "C" off64_t lseek64(int file, off64_t offset, int whence) noexcept {
    if (seekFails(whence)) return -1;
    static void* const original = dlsym(RTLD_NEXT, "lseek64");
    return reinterpret_cast<off64_t (*)(int, off64_t, int)>(original)(file, offset, whence);
}

extern "C" int fseeko(FILE* file, off_t offset, int whence) {
    if (seekFails(whence)) return -1;
    static void* const original = dlsym(RTLD_NEXT, "fseeko");
    return reinterpret_cast<int (*)(FILE*, off_t, int)>(original)(file, offset, whence);
}

namespace {

namespace fs = std::filesystem;
using namespace std::literals;
using namespace vesk::io::archives;
using namespace vesk::testing;

/// Sets the hook for seeks, for as long as it lives.
class SeekHook {
public:
    explicit SeekHook(std::function<bool(int)> hook) { beforeSeek = std::move(hook); }
    ~SeekHook() { beforeSeek = nullptr; }
    SeekHook(const SeekHook&) = delete;
    SeekHook& operator=(const SeekHook&) = delete;
};

class WholeFile : public ::testing::Test {
protected:
    const TempDir dir;
    const fs::path file = dir / "file";
    RecordingHost host;
    ByteFile<std::ifstream> input;  // one for all that a test reads

    /// Reads the file at `path` into a buffer that begins with "before ".
    std::string readBehind(const std::string& path) {
        ByteBuffer bytes = asBuffer("before ");
        zipReadFileBytes(path, input, bytes);
        EXPECT_FALSE(input.stream().is_open());
        return asText(bytes);
    }

    void expectContent(const std::string& content) {
        EXPECT_TRUE(readBehind(file) == "before " + content);
        EXPECT_EQ(host.calls, Calls());
    }

    void expectFailure(const fs::path& path, const std::string& message) {
        host.calls.clear();
        const auto filesBefore = openFileCount();
        readBehind(path);
        EXPECT_EQ(host.calls, Calls{"Vesk_raise(IOException, " + message + ")"});
        EXPECT_EQ(openFileCount(), filesBefore);
    }
};

/// Some standard libraries drop a stream's buffer when they close a file, and go on byte by byte.
TEST_F(WholeFile, EveryFileOfOneStreamIsReadThroughABuffer) {
    writeFile(file, std::string(1000, 'x'));
    for (const char* which : {"first", "second", "third"}) {
        SCOPED_TRACE(which);
        input.open(file, std::ios::in);
        input.stream().peek();
        EXPECT_EQ(input.stream().rdbuf()->in_avail(), 1000);
        input.stream().close();
    }
}

TEST_F(WholeFile, GivesExactlyTheBytesOfTheFile) {
    std::string everyByte;
    for (int byte = 0; byte < 256; ++byte) {
        everyByte += static_cast<char>(byte);
    }
    std::string big;
    while (big.size() < 3000000)
        big += everyByte;
    for (const std::string& content : {"x"s, "a\r\nb\n\x1A"s, "\0\0"s, everyByte, big}) {
        SCOPED_TRACE(content.size());
        writeFile(file, content);
        const auto filesBefore = openFileCount();
        expectContent(content);
        EXPECT_EQ(openFileCount(), filesBefore);
    }
}

TEST_F(WholeFile, AddsNothingForAnEmptyFileAndRaisesNothing) {
    writeFile(file, "");
    expectContent("");
}

TEST_F(WholeFile, ContinuesWithTheSameStreamAfterAFailure) {
    writeFile(file, "content");
    expectFailure(dir / "missing", "Cannot read file: " + (dir / "missing").native());
    host.calls.clear();
    expectContent("content");
}

TEST_F(WholeFile, ReadsThroughASymbolicLink) {
    writeFile(dir / "target", "content");
    fs::create_symlink("target", file);
    expectContent("content");
}

TEST_F(WholeFile, AllocatesExactlyTheSizeOfTheFile) {
    for (const std::size_t size : {1U, 1000U, 2000001U}) {
        writeFile(file, std::string(size, 'x'));
        ByteBuffer bytes;
        zipReadFileBytes(file, input, bytes);
        EXPECT_EQ(bytes.capacity(), size);
    }
}

#if SIZE_MAX > UINT32_MAX

bool isZero(const ByteBuffer& bytes) {
    return *bytes.data() == 0 &&
           std::memcmp(bytes.begin(), bytes.begin() + 1, bytes.size() - 1) == 0;
}

TEST_F(WholeFile, AcceptsAFileOf4294967295Bytes) {
    writeFile(file, "");
    fs::resize_file(file, 4294967295);
    ByteBuffer bytes;
    zipReadFileBytes(file, input, bytes);
    EXPECT_EQ(host.calls, Calls());
    ASSERT_EQ(bytes.size(), 4294967295U);
    EXPECT_TRUE(isZero(bytes));
}

#else

TEST_F(WholeFile, ThrowsLengthErrorForAFileThatNoMemoryOf32BitsCanHold) {
    writeFile(file, "");
    for (const std::uintmax_t size : {2147483648U, 4294967295U}) {
        fs::resize_file(file, size);
        ByteFile<std::ifstream> closed;
        ByteBuffer bytes;
        EXPECT_THROW(zipReadFileBytes(file, closed, bytes), std::length_error) << size;
        EXPECT_EQ(host.calls, Calls());
    }
}

#endif

TEST_F(WholeFile, RefusesLargerFilesAndThoseWithoutASize) {
    writeFile(file, "");
    for (const std::uintmax_t size : {4294967296U, 4294967297U, 0x200000000U}) {
        SCOPED_TRACE(size);
        fs::resize_file(file, size);
        expectFailure(file, "ZIP entry is too large for ZIP32");
    }
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    // With a writer at its other end, opening the FIFO does not wait.
    const int fifo = open((dir / "fifo").c_str(), O_RDWR);
    expectFailure(dir / "fifo", "ZIP entry is too large for ZIP32");
    close(fifo);
}

TEST_F(WholeFile, RefusesAFileWhoseSizeQueryFails) {
    writeFile(file, "content");
    int failures = 0;
    const SeekHook hook([&](int whence) { return whence != SEEK_END || ++failures == 0; });
    expectFailure(file, "ZIP entry is too large for ZIP32");
    EXPECT_EQ(failures, 1);
}

TEST_F(WholeFile, CannotReadAFileThatDoesNotSeekBack) {
    for (const char* const content : {"content", ""}) {
        SCOPED_TRACE(content);
        writeFile(file, content);
        int failures = 0;
        const SeekHook hook([&](int whence) { return whence != SEEK_SET || ++failures == 0; });
        expectFailure(file, "Cannot read file: " + file.native());
        EXPECT_EQ(failures, 1);
    }
}

TEST_F(WholeFile, CannotReadAFileThatShrinksAfterTheSizeQuery) {
    for (const std::uintmax_t left : {0U, 1U, 19999U}) {
        SCOPED_TRACE(left);
        writeFile(file, std::string(20000, 'x'));
        const SeekHook hook([&](int whence) {
            if (whence == SEEK_SET) fs::resize_file(file, left);
            return true;
        });
        expectFailure(file, "Cannot read file: " + file.native());
        EXPECT_EQ(fs::file_size(file), left);
    }
}

TEST_F(WholeFile, ReadsOnlyTheFirstBytesOfAFileThatGrowsAfterTheSizeQuery) {
    for (const std::string& content : {""s, "x"s, std::string(20000, 'x')}) {
        SCOPED_TRACE(content.size());
        writeFile(file, content);
        const SeekHook hook([&](int whence) {
            if (whence == SEEK_SET) writeFile(file, content + "and more");
            return true;
        });
        expectContent(content);
        EXPECT_EQ(fs::file_size(file), content.size() + 8);
    }
}

TEST_F(WholeFile, NamesAFileThatCannotBeOpenedExactlyAsItWasGiven) {
    writeFile(file, "");
    fs::create_symlink("nowhere", dir / "dangling");
    const std::string root = dir.path().native();
    for (const std::string& path :
         {root + "/missing", root + "//./missing", root + "/dangling", root + "/file/below",
          root + "/missing/../file", root + "/with \"quotes\" and \\ and \xFF", "missing"s,
          "./missing"s, "missing//../x"s, "missing/"s, ""s}) {
        SCOPED_TRACE(path);
        expectFailure(path, "Cannot read file: " + path);
    }
}

TEST_F(WholeFile, CannotReadWhatTheUserMayNotRead) {
    writeFile(file, "content");
    fs::permissions(dir.path(), fs::perms::all);
    fs::permissions(file, fs::perms::none);
    const std::string outcome = asOrdinaryUser([&] {
        fs::current_path(dir.path());
        readBehind("./file");
        return host.calls.at(0);
    });
    EXPECT_EQ(outcome, "Vesk_raise(IOException, Cannot read file: ./file)");
}

}  // namespace
