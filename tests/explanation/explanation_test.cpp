// SPDX-License-Identifier: MIT
// What explanations promise for any message and any file. Their words are tested through the
// program.
#include "explanation/explanation.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <regex>
#include <set>

#include "tests/support/gzip_bytes.h"
#include "tests/support/tar_bytes.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace vesk::testing;
using vesk::explanation::explain;
using vesk::explanation::FailedCall;
using Lines = std::vector<std::string>;

/// Every documented message, and one that does not exist.
std::set<std::string> allMessages() {
    const std::string document = readFile(VESK_MESSAGES_DOCUMENT);
    const std::regex row("\n\\| `([^`]*)`");
    std::set<std::string> messages{"Unheard of"};
    for (std::sregex_iterator it(document.begin(), document.end(), row), end; it != end; ++it)
        messages.insert((*it)[1]);
    return messages;
}

/// The number of bytes that this process has read so far.
std::uint64_t bytesRead() {
    std::ifstream counters("/proc/self/io");
    std::string name;
    std::uint64_t count = 0;
    counters >> name >> count;
    EXPECT_EQ(name, "rchar:");
    return count;
}

class Explanation : public ::testing::Test {
protected:
    FailedCall unpacking(const std::string& message, bool isGzip = false) const {
        return {false, isGzip, (dir_ / "a.tar").native(), (dir_ / "out").native(), message};
    }

    FailedCall making(const std::string& message) const {
        return {true, false, (dir_ / "a.tar").native(), (dir_ / "src").native(), message};
    }

    void writeArchive(std::string_view bytes) const { writeFile(dir_ / "a.tar", bytes); }

    /// Calls `check` with every message: for making, and for unpacking either format.
    void askEverything(const std::function<void(const FailedCall&)>& check) const {
        for (std::string message : allMessages()) {
            if (message == "Cannot read file: ") message += (dir_ / "a.tar").native();
            SCOPED_TRACE(message);
            check(making(message));
            check(unpacking(message, false));
            check(unpacking(message, true));
        }
    }

    TempDir dir_;
};

TEST_F(Explanation, TheDocumentedMessagesAreFound) {
    EXPECT_GT(allMessages().size(), 40U);
    EXPECT_EQ(allMessages().count("Invalid gzip flags"), 1U);
}

TEST_F(Explanation, SaysNothingOfAnArchiveThatIsValidNow) {
    writeArchive(tarEntry("a", "alpha") + tarEnd());
    const std::set<std::string> ofPaths{"Archive path is required", "Destination path is required",
                                        "Source path is required"};
    askEverything([&](const FailedCall& call) {
        if (call.isMaking || call.isGzip || ofPaths.count(call.message) == 1) return;
        EXPECT_EQ(explain(call), Lines());
    });
}

TEST_F(Explanation, SaysNothingOfAMemberThatIsValidNow) {
    writeArchive(gzipMember(tarEntry("a", "alpha") + tarEnd()));
    const std::set<std::string> ofAny{"Archive path is required", "Destination path is required",
                                      "Cannot store DEFLATE output"};
    askEverything([&](const FailedCall& call) {
        if (call.isMaking || !call.isGzip || ofAny.count(call.message) == 1) return;
        EXPECT_EQ(explain(call), Lines());
    });
}

TEST_F(Explanation, SaysNothingOfASourceThatIsReadableNow) {
    writeFile(dir_ / "src/sub/a", "alpha");
    const std::set<std::string> ofPaths{"Archive path is required", "Source path is required"};
    askEverything([&](const FailedCall& call) {
        const bool isReading = call.message.starts_with("Cannot read file: ");
        if (!call.isMaking || isReading || ofPaths.count(call.message) == 1) return;
        EXPECT_EQ(explain(call), Lines());
    });
}

TEST_F(Explanation, SaysOnlyWhatTheMessageIsAbout) {
    // A link after the file that the message is about, and one before it.
    writeArchive(tarEntry("a", "", '2') + tarEntry("../b", "") + tarEnd());
    EXPECT_NE(explain(unpacking("Unsupported TAR entry type")), Lines());
    EXPECT_EQ(explain(unpacking("Unsafe TAR entry name")), Lines());
    writeArchive(tarEntry("../b", "") + tarEntry("a", "", '2') + tarEnd());
    EXPECT_EQ(explain(unpacking("Unsupported TAR entry type")), Lines());
    EXPECT_NE(explain(unpacking("Unsafe TAR entry name")), Lines());
}

TEST_F(Explanation, NeverWaitsAndHasAtMostThreeLinesForAnyKindOfFile) {
    const std::vector<std::function<void(const fs::path&)>> things = {
        [](const fs::path&) {},
        [](const fs::path& path) { fs::create_directory(path); },
        [](const fs::path& path) { mkfifo(path.c_str(), 0600); },
        [](const fs::path& path) { fs::create_symlink(path, path); },
        [](const fs::path& path) { fs::create_symlink("/dev/zero", path); },
        [](const fs::path& path) { fs::create_symlink("/proc/self/mem", path); },
        [](const fs::path& path) { writeFile(path, ""); },
        [](const fs::path& path) { writeFile(path, "\x1f\x8b"); },
    };
    for (const auto& put : things) {
        for (const char* const name : {"a.tar", "src", "out"}) {
            fs::remove(dir_ / name);
            put(dir_ / name);
        }
        askEverything([](const FailedCall& call) { EXPECT_LE(explain(call).size(), 3U); });
    }
}

TEST_F(Explanation, AcceptsPathsThatAreEmptyOrTooLong) {
    for (const std::string& word :
         {std::string(), std::string(5000, 'x'), std::string(5000, '/')}) {
        askEverything([&](FailedCall call) {
            call.archive = word;
            call.tree = word;
            EXPECT_LE(explain(call).size(), 3U);
        });
    }
}

TEST_F(Explanation, SkipsTheDataOfEntries) {
    constexpr std::uintmax_t length = 0xF0000000;
    writeArchive(tarHeader("hole", length));
    fs::resize_file(dir_ / "a.tar", 512 + length);
    std::ofstream(dir_ / "a.tar", std::ios::app) << tarEntry("link", "", '2') << tarEnd();

    const std::uint64_t before = bytesRead();
    const Lines lines = explain(unpacking("Unsupported TAR entry type"));
    EXPECT_LT(bytesRead() - before, 1024U * 1024);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], "entry 2, 'link': a symbolic link to ''");
}

TEST_F(Explanation, GivesUpAMemberThatDecodesToMoreThanIsAccepted) {
    std::string stream;
    z_stream zlib{};
    ASSERT_EQ(deflateInit2(&zlib, 1, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY), Z_OK);
    std::string zeros(1 << 20, '\0');
    std::string piece(1 << 14, '\0');
    zlib.next_in = reinterpret_cast<Bytef*>(zeros.data());
    zlib.avail_in = static_cast<uInt>(zeros.size());
    zlib.next_out = reinterpret_cast<Bytef*>(piece.data());
    zlib.avail_out = static_cast<uInt>(piece.size());
    ASSERT_EQ(deflate(&zlib, Z_FULL_FLUSH), Z_OK);
    piece.resize(piece.size() - zlib.avail_out);
    deflateEnd(&zlib);
    for (int mebibyte = 0; mebibyte < 16400; ++mebibyte)
        stream += piece;
    writeArchive(gzipHeader() + stream + std::string(8, '\0'));

    const std::uint64_t before = bytesRead();
    const Lines lines = explain(unpacking("DEFLATE output is longer than its declared size", true));
    EXPECT_LT(bytesRead() - before, fs::file_size(dir_ / "a.tar") / 2);
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(lines[0].ends_with("a.tar': decodes to more than 4294967295 bytes")) << lines[0];
}

TEST_F(Explanation, FindsTheFailureAnywhereInATree) {
    for (int number = 0; number < 100; ++number)
        writeFile(dir_ / ("src/" + std::to_string(number) + "/file"), "x");
    fs::create_symlink("gone", dir_ / "src/57/link");
    const Lines lines = explain(making("Cannot enumerate archive source"));
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(lines[0].ends_with("src/57/link': a link to 'gone', which leads nowhere"))
        << lines[0];
}

TEST_F(Explanation, NamesTheFirstNameInOrderThatIsTooLong) {
    for (const char* const name : {"c", "a", "b"})
        writeFile(dir_ / ("src/" + std::string(name) + std::string(100, 'n')), "x");
    const Lines lines = explain(making("TAR entry name is too long"));
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0],
              "'a" + std::string(100, 'n') + "': a name of 101 bytes; 2 more are too long, too");
}

TEST_F(Explanation, FindsContradictionsBetweenNormalisedNames) {
    writeArchive(tarEntry("p/./a", "alpha") + tarEntry("p/b/../a/c", "x") + tarEnd());
    const Lines lines = explain(unpacking("Cannot create TAR entry directory"));
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], "entry 2, 'p/b/../a/c': entry 1 has made 'p/a' a file");
}

}  // namespace
