// SPDX-License-Identifier: MIT
// Tests of the extractor alone: what it makes below its root, and how each failure is reported.
#include "tar/stream_extractor.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/ordinary_user.h"
#include "tests/support/recording_host.h"
#include "tests/support/tar_bytes.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tree.h"

namespace {

namespace fs = std::filesystem;
using namespace std::literals;
using namespace vesk::io::archives;
using namespace vesk::testing;

/// The error text is not empty before: a success must keep it, a failure must replace it.
struct Extraction {
    bool done = false;
    std::string errorText = "word";
    Tree tree;
    std::vector<std::string> calls;
};

void extractInto(const fs::path& root, const std::string& archive, Extraction& extraction) {
    // Exactly as large as the archive, so that a sanitizer notices a byte read beyond it.
    const std::vector<std::uint8_t> bytes(archive.begin(), archive.end());
    RecordingHost host;
    extraction.done = tarExtractArchiveBytes(bytes, root, extraction.errorText);
    extraction.calls = host.calls;
}

Extraction extract(const std::string& archive) {
    const TempDir root;
    Extraction extraction;
    extractInto(root.path(), archive, extraction);
    extraction.tree = readTree(root.path());
    return extraction;
}

void expectSuccess(const Extraction& extraction, const Tree& tree) {
    EXPECT_TRUE(extraction.done);
    EXPECT_EQ(extraction.errorText, "word");
    EXPECT_EQ(extraction.tree, tree);
}

void expectFailure(const Extraction& extraction, const char* message, const Tree& tree) {
    EXPECT_FALSE(extraction.done);
    EXPECT_EQ(extraction.errorText, message);
    EXPECT_EQ(extraction.tree, tree);
}

TEST(StreamExtractor, MakesFilesAndDirectoriesAndLeavesTheErrorTextAlone) {
    const std::string data(1000, 'd');
    const std::string twoBlocks(1024, 'b');
    struct Row {
        const char* name;
        std::string archive;
        Tree tree;
    };
    const Row rows[] = {
        {"end marker alone", tarEnd(), {}},
        {"one file", tarEntry("a", "x") + tarEnd(), {{"a", "x"}}},
        {"file of type NUL", tarEntry("a", "x", '\0') + tarEnd(), {{"a", "x"}}},
        {"empty file", tarEntry("a", "") + tarEnd(), {{"a", ""}}},
        {"data of many bytes", tarEntry("a", data) + tarEnd(), {{"a", data}}},
        {"data without padding", tarEntry("a", twoBlocks) + tarEnd(), {{"a", twoBlocks}}},
        {"parents are made", tarEntry("p/q/a", "x") + tarEnd(), {{"p/q/a", "x"}}},
        {"files that share parents",
         tarEntry("p/q/a", "x") + tarEntry("p/b", "y") + tarEntry("p/q/c", "z") + tarEnd(),
         {{"p/b", "y"}, {"p/q/a", "x"}, {"p/q/c", "z"}}},
        {"directory", tarEntry("dir/", "", '5') + tarEnd(), {{"dir/", ""}}},
        {"directory without slash", tarEntry("dir", "", '5') + tarEnd(), {{"dir/", ""}}},
        {"directory with parents", tarEntry("p/q/", "", '5') + tarEnd(), {{"p/q/", ""}}},
        {"directory twice",
         tarEntry("d", "", '5') + tarEntry("d/", "", '5') + tarEnd(),
         {{"d/", ""}}},
        {"directory after its file",
         tarEntry("d/a", "x") + tarEntry("d", "", '5') + tarEnd(),
         {{"d/a", "x"}}},
        {"data of a directory is skipped",
         tarEntry("d", data, '5') + tarEntry("a", "x") + tarEnd(),
         {{"a", "x"}, {"d/", ""}}},
        {"slash does not make a directory", tarEntry("a///", "x") + tarEnd(), {{"a", "x"}}},
        {"second of two files",
         tarEntry("a", "long") + tarEntry("a", "2") + tarEnd(),
         {{"a", "2"}}},
        {"second of two files, empty",
         tarEntry("a", "1") + tarEntry("a", "") + tarEnd(),
         {{"a", ""}}},
        {"inner parent folded", tarEntry("a/../b", "x") + tarEnd(), {{"b", "x"}}},
        {"double slash", tarEntry("a//b", "x") + tarEnd(), {{"a/b", "x"}}},
        {"leading dot", tarEntry("./a", "x") + tarEnd(), {{"a", "x"}}},
        {"prefix", sealed(patched(tarHeader("n"), 345, "p")) + tarEnd(), {{"p/n", ""}}},
        {"prefix without magic",
         sealed(patched(patched(tarHeader("n"), 345, "p"), 257, std::string(8, '\0'))) + tarEnd(),
         {{"p/n", ""}}},
        {"garbage after one zero block",
         tarEntry("a", "x") + tarEnd() + std::string(700, '!'),
         {{"a", "x"}}},
        {"second archive after the end",
         tarEntry("a", "x") + tarEnd() + tarEntry("b", "y"),
         {{"a", "x"}}},
        {"fewer bytes after the end than a block", tarEnd() + "!", {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        expectSuccess(extract(row.archive), row.tree);
    }
}

TEST(StreamExtractor, ReplacesTheErrorTextByTheFirstProblemAndKeepsWhatItHasMade) {
    const std::string a = tarEntry("a", "x");
    const Tree onlyA = {{"a", "x"}};
    struct Row {
        const char* name;
        std::string archive;
        const char* message;
        Tree tree;
    };
    const Row rows[] = {
        {"empty archive", "", "TAR archive has no end marker", {}},
        {"511 NULs", std::string(511, '\0'), "TAR archive has no end marker", {}},
        {"end right after the data", a, "TAR archive has no end marker", onlyA},
        {"end marker cut short", a + std::string(511, '\0'), "TAR archive has no end marker",
         onlyA},
        {"checksum", a + withSum(tarHeader("b"), 1) + tarEnd(), "Invalid TAR header checksum",
         onlyA},
        {"unsafe name", a + tarEntry("../b", "y") + tarEnd(), "Unsafe TAR entry name", onlyA},
        {"size", a + sealed(patched(tarHeader("b"), 124, std::string(12, '\0'))) + tarEnd(),
         "Invalid TAR entry size", onlyA},
        {"data cut short", a + tarHeader("b", 2) + "y", "Truncated TAR entry", onlyA},
        {"file in the way of a directory", a + tarEntry("a", "", '5') + tarEnd(),
         "Cannot create TAR directory", onlyA},
        {"file in the way of a directory's parent", a + tarEntry("a/d", "", '5') + tarEnd(),
         "Cannot create TAR directory", onlyA},
        {"symbolic link", a + tarEntry("b", "", '2') + tarEnd(), "Unsupported TAR entry type",
         onlyA},
        {"file in the way of a parent", a + tarEntry("a/b", "y") + tarEnd(),
         "Cannot create TAR entry directory", onlyA},
        {"file in the way of a parent's parent", a + tarEntry("a/d/b", "y") + tarEnd(),
         "Cannot create TAR entry directory", onlyA},
        {"directory in the way of a file",
         tarEntry("d", "", '5') + tarEntry("d", "y") + tarEnd(),
         "Cannot write TAR entry",
         {{"d/", ""}}},
        {"directory with a file in the way of a file",
         tarEntry("d/e/a", "x") + tarEntry("d/e", "y") + tarEnd(),
         "Cannot write TAR entry",
         {{"d/e/a", "x"}}},
        {"padding cut short",
         a + tarHeader("b", 1) + "y" + std::string(510, '\0'),
         "Truncated TAR entry padding",
         {{"a", "x"}, {"b", "y"}}},
    };
    // Two messages have no row. "Cannot finalize TAR entry" needs a full disk: see below. "TAR
    // entry is too large for this platform" is unreachable where sizes have 64 bits, since twelve
    // octal digits are 36 bits: see below, too.
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        expectFailure(extract(row.archive), row.message, row.tree);
    }
}

// The length of a regular file's data is checked before the file is made, its padding afterwards.
TEST(StreamExtractor, NamesWhatIsMissingAtEveryLengthOfAnArchive) {
    const std::string data(700, 'd');
    const std::string archive = tarEntry("a", data) + tarEnd();
    ASSERT_EQ(archive.size(), 2048U);
    const TempDir root;
    for (std::size_t length = 0; length < 2048; ++length) {
        SCOPED_TRACE(length);
        const char* const message = length < 512    ? "TAR archive has no end marker"
                                    : length < 1212 ? "Truncated TAR entry"
                                    : length < 1536 ? "Truncated TAR entry padding"
                                                    : "TAR archive has no end marker";
        Extraction extraction;
        extractInto(root.path(), archive.substr(0, length), extraction);
        EXPECT_EQ(extraction.errorText, message);
        const bool isMade = length >= 1212;
        EXPECT_EQ(fs::remove(root / "a"), isMade);
    }
}

TEST(StreamExtractor, ChecksTheLengthOfDirectoriesAndUnsupportedEntriesToo) {
    const std::string data(700, 'd');
    const char types[] = {'0', '\0', '5', '2', 'x'};
    for (const char type : types) {
        SCOPED_TRACE(type);
        const std::string cut = tarHeader("a", 700, type) + data.substr(1);
        expectFailure(extract(cut), "Truncated TAR entry", {});
    }
    expectFailure(extract(tarHeader("d", 700, '5') + data), "Truncated TAR entry padding",
                  {{"d/", ""}});
}

TEST(StreamExtractor, RefusesEveryTypeButRegularFilesAndDirectories) {
    for (int type = 0; type < 256; ++type) {
        SCOPED_TRACE(type);
        const Extraction result = extract(tarEntry("e", "x", static_cast<char>(type)) + tarEnd());
        if (type == 0 || type == 48) {
            expectSuccess(result, {{"e", "x"}});
        } else if (type == 53) {
            expectSuccess(result, {{"e/", ""}});
        } else {
            expectFailure(result, "Unsupported TAR entry type", {});
        }
    }
}

/// Returns the message of an archive with one empty file whose header is `header`; "" when there is
/// none.
std::string messageOf(const std::string& header, const TempDir& root) {
    Extraction extraction;
    extractInto(root.path(), header + tarEnd(), extraction);
    return extraction.done ? "" : extraction.errorText;
}

TEST(StreamExtractor, ReadsTheChecksumAsAnOctalNumberAmongNulsAndSpaces) {
    const TempDir root;
    // The sum of this header is 2019 (3743 in octal).
    const std::string header = tarHeader("hello");
    ASSERT_EQ(tarSum<unsigned char>(header), 2019);
    struct Row {
        std::string_view chksum;
        bool accepted;
    };
    const Row rows[] = {
        {"0003743 "sv, true},    {"003743\0 "sv, true},
        {"   3743\0"sv, true},   {"3743\0\0\0\0"sv, true},
        {"    3743"sv, true},    {"00003743"sv, true},
        {"\0\0 3743 "sv, true},  {"\0\0\0\0\0\0\0\0"sv, false},
        {"        "sv, false},   {"37 43\0\0\0"sv, false},
        {"0x3743\0\0"sv, false}, {"003743x "sv, false},
        {"+03743\0 "sv, false},  {"\x80\0\0\0\0\0\x07\xE3"sv, false},
        {"003742\0 "sv, false},  {"003744\0 "sv, false},
        {"000000\0 "sv, false},  {"403743\0 "sv, false},
        {"002019\0 "sv, false},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(messageOf(patched(header, 148, row.chksum), root),
                  row.accepted ? "" : "Invalid TAR header checksum")
            << row.chksum;
    }
}

TEST(StreamExtractor, CountsHeaderBytesAsUnsigned) {
    const std::string header = sealed(patched(tarHeader("\xC3\xA4"), 265, "\xFF\xFE"));
    const int signedSum = tarSum<signed char>(header);
    ASSERT_NE(signedSum, tarSum<unsigned char>(header));
    expectSuccess(extract(header + tarEnd()), {{"\xC3\xA4", ""}});
    expectFailure(extract(withSum(header, signedSum) + tarEnd()), "Invalid TAR header checksum",
                  {});
}

TEST(StreamExtractor, NoticesEveryFlippedBitOutsideTheChecksumField) {
    const TempDir root;
    const std::string header = tarHeader("hello");
    for (std::size_t bit = 0; bit < 512 * 8; ++bit) {
        if (bit / 8 >= 148 && bit / 8 < 156) continue;
        std::string flipped = header;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
        EXPECT_EQ(messageOf(flipped, root), "Invalid TAR header checksum") << "bit " << bit;
    }
    EXPECT_TRUE(fs::is_empty(root.path()));
}

// Only a block whose bytes are all NUL ends the archive.
TEST(StreamExtractor, TreatsABlockWithOneByteAsAHeader) {
    const TempDir root;
    for (std::size_t offset = 0; offset < 512; ++offset) {
        EXPECT_EQ(messageOf(patched(tarEnd(), offset, "\1"), root), "Invalid TAR header checksum")
            << offset;
    }
}

TEST(StreamExtractor, ReadsTheSizeAsAnOctalNumberAmongNulsAndSpaces) {
    struct Row {
        std::string_view size;
        const char* message;
    };
    const Row rows[] = {
        {"00000000001\0"sv, ""},
        {"00000000001 "sv, ""},
        {"000000000001"sv, ""},
        {"          1 "sv, ""},
        {"1\0\0\0\0\0\0\0\0\0\0\0"sv, ""},
        {"\0\0\0\0\0\0\0\0\0\0\0\0"sv, "Invalid TAR entry size"},
        {"            "sv, "Invalid TAR entry size"},
        {"0000000001 1"sv, "Invalid TAR entry size"},
        {"-0000000001\0"sv, "Invalid TAR entry size"},
        {"00000000008\0"sv, "Invalid TAR entry size"},
        {"0x000000001\0"sv, "Invalid TAR entry size"},
        {"\x80\0\0\0\0\0\0\0\0\0\0\1"sv, "Invalid TAR entry size"},
        {"777777777777"sv, "Truncated TAR entry"},
        {"77777777777\0"sv, "Truncated TAR entry"},
        {"00000002001\0"sv, "Truncated TAR entry"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.size);
        // 1024 bytes follow the header: the data, its padding and the end marker.
        const std::string header = sealed(patched(tarHeader("a"), 124, row.size));
        const Extraction extraction = extract(header + "x" + std::string(511, '\0') + tarEnd());
        if (*row.message == '\0') {
            expectSuccess(extraction, {{"a", "x"}});
        } else {
            expectFailure(extraction, row.message, {});
        }
    }
}

TEST(StreamExtractor, RefusesUnsafeNamesWithoutLookingAtTheRest) {
    const char* const names[] = {"",     "/",   "../evil",   "/etc/x", "a\\b", "C:x",   ".",
                                 "a/..", "a/.", "a/../../x", "a/b/..", "..",   "//x/y", "../"};
    for (const char* const name : names) {
        SCOPED_TRACE(name);
        expectFailure(extract(tarEntry(name, "x") + tarEnd()), "Unsafe TAR entry name", {});
        expectFailure(extract(tarEntry(name, "", '2') + tarEnd()), "Unsafe TAR entry name", {});
        expectFailure(extract(tarEntry(name, "", '5') + tarEnd()), "Unsafe TAR entry name", {});
    }
}

// The parts of an archive whose last entry is "e/f" with two bytes of data. Faults change them.
struct Parts {
    std::string before;
    std::string header = tarHeader("e/f", 2);
    std::string data = "xy";
    std::string padding = std::string(510, '\0');
    std::string end = tarEnd();
    bool spoiltChecksum = false;

    std::string archive() const {
        std::string block = sealed(header);
        if (spoiltChecksum) block = withSum(block, tarSum<unsigned char>(block) + 1);
        return before + block + data + padding + end;
    }
};

struct Fault {
    int step;
    const char* message;
    void (*apply)(Parts&);
};

// In the order in which they must be found. Faults of one step exclude each other.
const Fault faults[] = {
    {1, "Invalid TAR header checksum", [](Parts& parts) { parts.spoiltChecksum = true; }},
    {2, "Unsafe TAR entry name", [](Parts& parts) { parts.header.replace(0, 3, "../"); }},
    {3, "Invalid TAR entry size", [](Parts& parts) { parts.header[124] = '9'; }},
    {4, "Truncated TAR entry", [](Parts& parts) { parts.data = parts.padding = parts.end = ""; }},
    {5, "Unsupported TAR entry type", [](Parts& parts) { parts.header[156] = '2'; }},
    {5, "Cannot create TAR directory",
     [](Parts& parts) {
         parts.before = tarEntry("e", "");
         parts.header[156] = '5';
     }},
    {5, "Cannot create TAR entry directory",
     [](Parts& parts) { parts.before = tarEntry("e", ""); }},
    {5, "Cannot write TAR entry", [](Parts& parts) { parts.before = tarEntry("e/f", "", '5'); }},
    {6, "Truncated TAR entry padding",
     [](Parts& parts) {
         parts.padding.resize(parts.padding.empty() ? 0 : 509);
         parts.end = "";
     }},
    {7, "TAR archive has no end marker", [](Parts& parts) { parts.end = ""; }},
};

TEST(StreamExtractor, ReportsTheFirstOfTwoFaults) {
    for (const Fault& first : faults) {
        Parts once;
        first.apply(once);
        EXPECT_EQ(extract(once.archive()).errorText, first.message);
        for (const Fault& second : faults) {
            if (first.step >= second.step) continue;
            Parts twice;
            first.apply(twice);
            second.apply(twice);
            EXPECT_EQ(extract(twice.archive()).errorText, first.message)
                << "and " << second.message;
        }
    }
}

// Converted once to judge the name, and once to make the target if the size of the entry is valid.
TEST(StreamExtractor, ConvertsTheNameWhenItIsNeeded) {
    struct Row {
        const char* name;
        std::string archive;
        std::size_t conversions;
    };
    const Row rows[] = {
        {"file", tarEntry("e", "x") + tarEnd(), 2},
        {"directory", tarEntry("e/", "", '5') + tarEnd(), 2},
        {"unsupported type", tarEntry("e", "", '2') + tarEnd(), 2},
        {"padding", tarHeader("e", 1) + "x", 2},
        {"size", sealed(patched(tarHeader("e"), 124, "x")) + tarEnd(), 1},
        {"bounds", tarHeader("e", 1), 1},
        {"name refused after normalisation", tarEntry("a/..", "") + tarEnd(), 1},
        {"name refused as text", tarEntry("/e", "") + tarEnd(), 0},
        {"checksum", withSum(tarHeader("e"), 1) + tarEnd(), 0},
        {"end marker", tarEnd(), 0},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(extract(row.archive).calls.size(), row.conversions) << row.name;
    }
}

TEST(StreamExtractor, IgnoresEveryOtherFieldOfTheHeader) {
    std::string header = tarHeader("a", 1);
    header.replace(100, 24, std::string(24, '\xFF'));    // mode, uid, gid
    header.replace(136, 12, std::string(12, '\xFF'));    // mtime
    header.replace(157, 188, std::string(188, '\xFF'));  // linkname up to devminor
    header.replace(500, 12, std::string(12, '\xFF'));    // padding
    expectSuccess(extract(sealed(header) + "x" + tarPadding(1) + tarEnd()), {{"a", "x"}});
}

struct stat statusOf(const fs::path& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) throw std::runtime_error("stat failed");
    return status;
}

TEST(StreamExtractor, AppliesNoModeOrTimeOfTheHeader) {
    const std::string header = patched(tarHeader("a"), 100, "0000000"sv);
    const std::string directory = patched(tarHeader("d", 0, '5'), 100, "0007777"sv);
    const TempDir root;
    Extraction extraction;
    extractInto(root.path(), sealed(header) + sealed(directory) + tarEnd(), extraction);
    ASSERT_TRUE(extraction.done);

    writeFile(root / "plain", "");
    fs::create_directory(root / "plain-directory");
    EXPECT_EQ(statusOf(root / "a").st_mode, statusOf(root / "plain").st_mode);
    EXPECT_EQ(statusOf(root / "d").st_mode, statusOf(root / "plain-directory").st_mode);
    // The header says 1970.
    EXPECT_GT(statusOf(root / "a").st_mtime, 0);
}

// In a child process, since a limit on the size of files cannot be removed again.
std::string messageBelowLimit(std::size_t limit, const fs::path& root, const std::string& archive) {
    return asOrdinaryUser([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limits{limit, limit};
        if (setrlimit(RLIMIT_FSIZE, &limits) != 0) return "setrlimit failed"s;
        Extraction extraction;
        extractInto(root, archive, extraction);
        return extraction.errorText;
    });
}

/// Extracts below `root` from the directory "here". Returns all that is beside and below it.
Extraction extractFromHere(const fs::path& root, const std::string& name) {
    const TempDir dir;
    const fs::path before = fs::current_path();
    fs::create_directory(dir / "here");
    fs::current_path(dir / "here");
    Extraction extraction;
    extractInto(root, tarEntry(name, "x") + tarEnd(), extraction);
    fs::current_path(before);
    extraction.tree = readTree(dir.path());
    extraction.tree.erase("here/");
    return extraction;
}

TEST(StreamExtractor, UsesItsRootInNormalForm) {
    for (const char* const root : {"root", "root/", "root//", "./root", ".//root/.",
                                   "absent/../root", "../here/root", "a/../../here/root"}) {
        SCOPED_TRACE(root);
        expectSuccess(extractFromHere(root, "d/f"), {{"here/root/d/f", "x"}});
    }
    for (const char* const root : {"..", "../", "here/../.."})
        expectSuccess(extractFromHere(root, "f"), {{"f", "x"}});
    for (const char* const root : {"", ".", "./", "a/.."})
        expectSuccess(extractFromHere(root, "d/f"), {{"here/d/f", "x"}});
}

TEST(StreamExtractor, MakesAMissingRoot) {
    for (const char* const name : {"a", "p/a"}) {
        const TempDir dir;
        Extraction extraction;
        extractInto(dir / "not/there", tarEntry(name, "x") + tarEnd(), extraction);
        extraction.tree = readTree(dir.path());
        expectSuccess(extraction, {{"not/there/"s + name, "x"}});
    }
}

// A root without a name is the current directory of the process. A file there has no parent that
// could be made.
TEST(StreamExtractor, WritesNoFileIntoTheCurrentDirectory) {
    for (const char* const root : {"", ".", "./", "a/.."})
        expectFailure(extractFromHere(root, "a"), "Cannot create TAR entry directory", {});
}

// The sanitizers need descriptors of their own and take the lack of one for a defect.
#ifndef VESK_SANITIZED
// Making directories needs no descriptor, so it succeeds.
TEST(StreamExtractor, CannotWriteAFileWithoutADescriptor) {
    for (const char* const name : {"a", "p/a"}) {
        const TempDir root;
        fs::permissions(root.path(), fs::perms::all);
        const std::string message = asOrdinaryUser([&] {
            const int lowest = dup(STDIN_FILENO);
            close(lowest);
            rlimit limit{};
            getrlimit(RLIMIT_NOFILE, &limit);
            limit.rlim_cur = static_cast<rlim_t>(lowest);
            if (setrlimit(RLIMIT_NOFILE, &limit) != 0) return "setrlimit failed"s;
            Extraction extraction;
            extractInto(root.path(), tarEntry(name, "x") + tarEnd(), extraction);
            return extraction.errorText;
        });
        EXPECT_EQ(message, "Cannot write TAR entry");
        EXPECT_EQ(fs::is_directory(root / "p"), name == "p/a"s);
    }
}
#endif

#if SIZE_MAX == UINT32_MAX

TEST(StreamExtractor, RefusesAnEntryThatIsTooLargeForStreamsOf32Bits) {
    constexpr std::size_t dataSize = 2147483648;
    constexpr std::size_t size = 512 + dataSize;
    void* const zeros = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(zeros, MAP_FAILED);
    std::memcpy(zeros, tarHeader("a", dataSize).data(), 512);
    const TempDir root;
    Extraction extraction;
    RecordingHost host;
    extraction.done = tarExtractArchiveBytes({static_cast<const std::uint8_t*>(zeros), size},
                                             root.path(), extraction.errorText);
    munmap(zeros, size);
    extraction.tree = readTree(root.path());
    expectFailure(extraction, "TAR entry is too large for this platform", {{"a", ""}});
}

#endif

TEST(StreamExtractor, CannotFinalizeAFileThatOutgrowsTheDisk) {
    struct Row {
        const char* name;
        std::size_t limit;
        std::string archive;
        const char* message;
        std::size_t written;
    };
    const std::string data(100000, 'x');
    const Row rows[] = {
        {"just fits", 100000, tarEntry("a", data) + tarEnd(), "word", 100000},
        {"a byte too large for the write", 99999, tarEntry("a", data) + tarEnd(),
         "Cannot finalize TAR entry", 99999},
        {"a byte that is written at the close", 0, tarEntry("a", "x") + tarEnd(),
         "Cannot finalize TAR entry", 0},
        {"before padding that is cut short", 0, tarHeader("a", 1) + "x",
         "Cannot finalize TAR entry", 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const TempDir root;
        fs::permissions(root.path(), fs::perms::all);
        EXPECT_EQ(messageBelowLimit(row.limit, root.path(), row.archive), row.message);
        EXPECT_EQ(fs::file_size(root / "a"), row.written);
    }
}

TEST(StreamExtractor, ReportsWhatAnOrdinaryUserIsNotAllowedTo) {
    struct Row {
        const char* name;
        std::string archive;
        const char* message;
    };
    const Row rows[] = {
        {"file", tarEntry("a", "x") + tarEnd(), "Cannot write TAR entry"},
        {"write-protected file", tarEntry("old", "x") + tarEnd(), "Cannot write TAR entry"},
        {"directory", tarEntry("d", "", '5') + tarEnd(), "Cannot create TAR directory"},
        {"parent", tarEntry("d/a", "x") + tarEnd(), "Cannot create TAR entry directory"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const TempDir root;
        writeFile(root / "old", "old");
        fs::permissions(root / "old", fs::perms(0444));
        fs::permissions(root.path(), fs::perms(0555));
        const std::string message = asOrdinaryUser([&] {
            Extraction extraction;
            extractInto(root.path(), row.archive, extraction);
            return extraction.errorText;
        });
        EXPECT_EQ(message, row.message);
        EXPECT_EQ(readTree(root.path()), (Tree{{"old", "old"}}));
    }
}

// A root so deep that some names below it make a path of more than 4095 bytes.
TEST(StreamExtractor, ReportsAPathThatTheSystemFindsTooLong) {
    const TempDir dir;
    fs::path root = dir.path();
    while (root.native().size() < 3900)
        root /= std::string(100, 'd');
    root /= std::string(4044 - root.native().size(), 'd');
    fs::create_directories(root);
    struct Row {
        char type;
        std::string_view prefix;
        const char* message;
    };
    const Row rows[] = {
        {'0', "", "Cannot write TAR entry"},
        {'0', "a/very/long/prefix/that/leads/to/a/directory/of/its/own",
         "Cannot create TAR entry directory"},
        {'5', "", "Cannot create TAR directory"},
    };
    for (const Row& row : rows) {
        Extraction extraction;
        const std::string header = tarHeader(std::string(100, 'n'), 0, row.type);
        extractInto(root, sealed(patched(header, 345, row.prefix)) + tarEnd(), extraction);
        EXPECT_EQ(extraction.errorText, row.message);
    }
}

TEST(StreamExtractor, PassesAnExceptionOnWithTheErrorTextUnchanged) {
    const TempDir root;
    RecordingHost host;
    host.beforeRuntimeFsPath = [](const char*) { throw std::bad_alloc(); };
    std::string errorText = "word";
    const std::string archive = tarEntry("a", "x") + tarEnd();
    const std::vector<std::uint8_t> bytes(archive.begin(), archive.end());
    EXPECT_THROW(tarExtractArchiveBytes(bytes, root.path(), errorText), std::bad_alloc);
    EXPECT_EQ(errorText, "word");
}

}  // namespace
