// SPDX-License-Identifier: MIT
// Archives with large declared sizes and little content are cheap to refuse. Long archives cost
// only in proportion to their length.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "tests/faults/archive_calls.h"
#include "tests/support/in_child.h"
#include "tests/support/memory_dir.h"

namespace {

/// The number of file operations of the process so far.
std::atomic<long> statCalls = 0;
std::atomic<long> mkdirCalls = 0;
std::atomic<long> openCalls = 0;

template <typename Function>
Function* next(Function* /*type*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int stat(const char* path, struct stat* status) noexcept {
    static auto* const original = next(static_cast<decltype(&::stat)>(nullptr), "stat");
    ++statCalls;
    return original(path, status);
}

int mkdir(const char* path, mode_t mode) noexcept {
    static auto* const original = next(static_cast<decltype(&::mkdir)>(nullptr), "mkdir");
    ++mkdirCalls;
    return original(path, mode);
}

FILE* fopen64(const char* path, const char* mode) {
    static auto* const original = next(static_cast<decltype(&::fopen64)>(nullptr), "fopen64");
    ++openCalls;
    return original(path, mode);
}

// libc++ opens files with this function.
FILE* fopen(const char* path, const char* mode) {
    static auto* const original = next(static_cast<decltype(&::fopen)>(nullptr), "fopen");
    ++openCalls;
    return original(path, mode);
}

}  // extern "C"

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t mebibyte = 1024 * 1024;

/// The memory that any call may need: the decoder's pieces, streams, paths.
constexpr std::size_t smallChange = 4 * mebibyte;

/// The last page of a large block may be touched at its beginning only.
constexpr std::size_t largePage = 2 * mebibyte;

/// How many times the output of an archive may be in memory: twice, while the text for it grows.
/// The string streams of libc++ 14 also copy the text when it is taken from them.
#ifdef _LIBCPP_VERSION
constexpr std::size_t outputCopies = 3;
#else
constexpr std::size_t outputCopies = 2;
#endif

const ArchiveCall& unpackNew(bool gzip) {
    return archiveCalls[gzip ? 6 : 2];
}

/// Returns a header block of an entry whose declared size is given by the twelve bytes `size`.
std::string headerClaiming(std::string_view size) {
    return sealed(patched(tarHeader("a"), 124, size));
}

/// Returns a member with `payload` whose declared size is `length` bytes.
std::string memberClaiming(const std::string& payload, std::uint32_t length) {
    return gzipHeader() + payload + littleEndian(0, 4) + littleEndian(length, 4);
}

/// An archive, how its extraction ends, and the number of bytes of its real output.
struct Lie {
    const char* name;
    bool gzip;
    std::string archive;
    const char* ending;
    std::size_t output;
};

// clang-format off
std::vector<Lie> lies() {
    const std::string zeros(64 * mebibyte, '\0');
    const std::string packedZeros = rawDeflate(zeros);
    return {
        {"LargestTarSize", false, headerClaiming("777777777777"), "Truncated TAR entry", 0},
        {"LargestTarSizeWithTerminator", false, headerClaiming(std::string("77777777777\0", 12)),
         "Truncated TAR entry", 0},
        {"LargestTarSizeAndSomeData", false, headerClaiming("777777777777") + noise(mebibyte),
         "Truncated TAR entry", 0},
        {"LargestSizeOfDirectory", false,
         sealed(patched(tarHeader("a", 0, '5'), 124, "777777777777")), "Truncated TAR entry", 0},
        {"LargestExtraField", true, gzipHeader(0x04) + "\xFF\xFF" + std::string(28, 'x'),
         "Truncated gzip extra field", 0},
        {"LargestLengthOfFewBytes", true, memberClaiming(rawDeflate("22 bytes when deflated"), 0xFFFFFFFF),
         "DEFLATE output is shorter than its declared size", 0},
        {"LargestLengthOfManyBytes", true, memberClaiming(rawDeflate(noise(4 * mebibyte)), 0xFFFFFFFF),
         "DEFLATE output is shorter than its declared size", 4 * mebibyte},
        {"LargestLengthOfThousandfoldExpansion", true, memberClaiming(packedZeros, 0xFFFFFFFF),
         "DEFLATE output is shorter than its declared size", zeros.size()},
        {"SmallLengthOfThousandfoldExpansion", true, memberClaiming(packedZeros, 1000),
         "DEFLATE output is longer than its declared size", 0},
        {"TrueLengthOfThousandfoldExpansion", true,
         gzipHeader() + packedZeros + gzipTrailer(zeros), "done", zeros.size()},
    };
}
// clang-format on

/// Returns the highest memory use of this process so far, in bytes.
std::size_t peakMemory() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("VmHWM:")) return std::stoul(line.substr(6)) * 1024;
    }
    return 0;
}

std::string endingOf(const ArchiveCall& call, const fs::path& from, const fs::path& to) {
    call(from, to);
    const auto error = standin::takePendingError();
    return error ? error->message : "done";
}

/// The number of calls that convert a path.
long pathConversions = 0;

void countConversions(void* /*context*/, standin::HostCall call) {
    if (call == standin::HostCall::runtimeFsPath) ++pathConversions;
}

/// The cost of an extraction.
struct Cost {
    long conversions;
    long stats;
    long mkdirs;
    long opens;
};

Cost costOfUnpacking(bool gzip, const std::string& archive, const TempDir& root) {
    writeFile(root / "archive", archive);
    const Cost before{pathConversions, statCalls, mkdirCalls, openCalls};
    standin::observeCalls(countConversions, nullptr);
    const std::string ending = endingOf(unpackNew(gzip), root / "archive", root / "out");
    standin::observeCalls(nullptr, nullptr);
    EXPECT_EQ(ending, "done");
    return {pathConversions - before.conversions, statCalls - before.stats,
            mkdirCalls - before.mkdirs, openCalls - before.opens};
}

std::string repeated(const std::string& text, int times) {
    std::string whole;
    whole.reserve(text.size() * static_cast<std::size_t>(times));
    for (; times > 0; --times)
        whole += text;
    return whole;
}

}  // namespace

TEST(LyingSizes, MemoryIsBoundedByTheArchiveAndItsTrueOutput) {
    // Makes the allocator always return large blocks to the system, so that no call profits from
    // blocks of an earlier one.
    mallopt(M_MMAP_THRESHOLD, 64 * 1024);
    const auto directory = makeMemoryDir();
    const TempDir& root = *directory;
    for (const Lie& row : lies()) {
        SCOPED_TRACE(row.name);
        writeFile(root / "archive", row.archive);
        const std::string report = inChild([&] {
            const std::size_t before = peakMemory();
            const std::string ending =
                endingOf(unpackNew(row.gzip), root / "archive", root / "out");
            return std::to_string(peakMemory() - before) + ' ' + ending;
        });
        // The archive is released once its payload has been copied, before any output.
        const std::size_t output = row.output == 0 ? 0 : row.output + largePage;
        const std::size_t bound =
            row.archive.size() + std::max(row.archive.size(), outputCopies * output) + smallChange;
        EXPECT_LT(std::stoul(report), bound);
        EXPECT_EQ(report.substr(report.find(' ') + 1), row.ending);
        std::printf("%-40s %9zu bytes, %9s of memory\n", row.name, row.archive.size(),
                    report.substr(0, report.find(' ')).c_str());
        fs::remove_all(root / "out");
    }
}

// Memory that is reserved but never used does not appear above, but allocating it can fail.
TEST(LyingSizes, MemoryIsReservedForThePayloadNotForTheDeclaredSize) {
    const auto directory = makeMemoryDir();
    const TempDir& root = *directory;
    const std::string few = "22 bytes when deflated";
    for (const std::string& content : {few, noise(8 * mebibyte)}) {
        SCOPED_TRACE(content.size());
        writeFile(root / "archive", memberClaiming(rawDeflate(content), 0xFFFFFFFF));
        const std::string report = inChild([&] {
            rlimit limit{};
            getrlimit(RLIMIT_AS, &limit);
            limit.rlim_cur = std::size_t{512} * mebibyte;
            setrlimit(RLIMIT_AS, &limit);
            return endingOf(unpackNew(true), root / "archive", root / "out");
        });
        EXPECT_EQ(report, "DEFLATE output is shorter than its declared size");
    }
}

// Directories instead of files: all the million entries are one object.
TEST(LongArchives, MillionHeadersCostTheSameEach) {
    const auto directory = makeMemoryDir();
    const TempDir& root = *directory;
    const std::string headers = repeated(tarHeader("d", 0, '5'), 1000000) + tarEnd();
    const Cost cost = costOfUnpacking(true, gzipMember(headers), root);
    EXPECT_EQ(cost.conversions, 2 + 2 * 1000000L);
    EXPECT_LT(cost.stats, 1000000 + 100);
    EXPECT_LT(cost.mkdirs, 10);
    EXPECT_EQ(cost.opens, 1);
    EXPECT_EQ(readTree(root / "out"), (Tree{{"d/", ""}}));
}

// Only the last file has content: some file systems write the content of a file to disk each time
// before it is truncated.
TEST(LongArchives, HundredThousandEntriesOfOneNameCostTheSameEach) {
    const auto directory = makeMemoryDir();
    const TempDir& root = *directory;
    const std::string entries = repeated(tarEntry("d/f", ""), 99999) + tarEntry("d/f", "last");
    const Cost cost = costOfUnpacking(true, gzipMember(entries + tarEnd()), root);
    EXPECT_EQ(cost.conversions, 2 + 2 * 100000L);
    EXPECT_LT(cost.stats, 100);
    EXPECT_LT(cost.mkdirs, 10);
    // One for the archive, and one for the first file before its directory exists.
    EXPECT_EQ(cost.opens, 100000 + 2);
    EXPECT_EQ(readTree(root / "out"), (Tree{{"d/f", "last"}}));
}

TEST(LongArchives, DeepestNameCostsAFewCallsForEachComponentOnce) {
    const auto directory = makeMemoryDir();
    const TempDir& root = *directory;
    const std::string name = repeated("a/", 127) + "ff";
    ASSERT_EQ(name.size(), 256U);
    const std::string header =
        sealed(patched(tarHeader(name.substr(156)), 345, name.substr(0, 155)));
    const Cost once = costOfUnpacking(false, header + tarEnd(), root);
    EXPECT_EQ(readTree(root / "out"), (Tree{{name, ""}}));
    EXPECT_LE(once.mkdirs, 127 + 5);
    EXPECT_LE(once.stats, 2 * 127 + 20);

    fs::remove_all(root / "out");
    const Cost often = costOfUnpacking(false, repeated(header, 1001) + tarEnd(), root);
    EXPECT_EQ(often.mkdirs, once.mkdirs);
    EXPECT_EQ(often.stats, once.stats);
    EXPECT_EQ(often.opens, once.opens + 1000);
    EXPECT_EQ(often.conversions, once.conversions + 2000);
}

}  // namespace vesk::testing
