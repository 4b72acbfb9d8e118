// SPDX-License-Identifier: MIT
// A file that exceeds the limit on file sizes is refused before memory is allocated for it.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>

#include "tests/support/module_calls.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/recording_host.h"
#include "tests/support/temp_dir.h"

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

/// One byte more than a file may have.
constexpr std::uintmax_t tooLarge = 4294967296;

/// The most memory, in KiB, that a refused call may have touched.
constexpr long memoryLimit = 50 * 1024;

/// Returns the largest amount of memory, in KiB, that this process has had so far.
long peakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) return std::stol(line.substr(6));
    }
    throw std::runtime_error("no VmHWM");
}

/// Makes a sparse file of the size `size`.
void writeSparseFile(const fs::path& path, std::uintmax_t size) {
    writeFile(path, "");
    fs::resize_file(path, size);
}

/// Runs `call` in its own process, whose peak of memory starts at its current use. Returns the
/// message that was raised, with a remark when the call used more memory than allowed.
std::string messageWithinMemory(const std::function<void()>& call) {
    return asOrdinaryUser([&] {
        RecordingHost host;
        const long before = peakMemory();
        call();
        const long growth = peakMemory() - before;
        const std::string message = host.pendingMessage.value_or("nothing raised");
        if (growth < memoryLimit) return message;
        return message + ", with " + std::to_string(growth) + " KiB";
    });
}

class Limits : public ::testing::TestWithParam<Container> {
protected:
    Limits() { EXPECT_EQ(chmod(directory_.path().c_str(), 0777), 0); }

    const TempDir directory_;
};

}  // namespace

TEST_P(Limits, TooLargeSourceFileIsRefusedInLittleMemory) {
    writeSparseFile(directory_ / "large", tooLarge);
    EXPECT_EQ(messageWithinMemory([&] {
                  makeArchive(GetParam(), (directory_ / "large").c_str(),
                              (directory_ / "archive").c_str());
              }),
              "ZIP entry is too large for ZIP32");
    EXPECT_FALSE(fs::exists(directory_ / "archive"));
}

TEST_P(Limits, TooLargeFileInASourceDirectoryIsRefusedInLittleMemory) {
    writeFile(directory_ / "source/a", "small");
    writeSparseFile(directory_ / "source/b", tooLarge);
    EXPECT_EQ(messageWithinMemory([&] {
                  makeArchive(GetParam(), (directory_ / "source").c_str(),
                              (directory_ / "archive").c_str());
              }),
              "ZIP entry is too large for ZIP32");
    EXPECT_FALSE(fs::exists(directory_ / "archive"));
}

TEST_P(Limits, TooLargeArchiveIsRefusedInLittleMemory) {
    writeSparseFile(directory_ / "archive", tooLarge);
    EXPECT_EQ(messageWithinMemory([&] {
                  unpackArchive(GetParam(), (directory_ / "archive").c_str(),
                                (directory_ / "out").c_str());
              }),
              "ZIP entry is too large for ZIP32");
    EXPECT_FALSE(fs::exists(directory_ / "out"));
}

// Shows that the measurement of the tests above notices the memory for a file.
TEST_P(Limits, MemoryOfAnAcceptedFileIsMeasured) {
    writeSparseFile(directory_ / "archive", 100 * 1024 * 1024);
    EXPECT_NE(messageWithinMemory([&] {
                  unpackArchive(GetParam(), (directory_ / "archive").c_str(),
                                (directory_ / "out").c_str());
              }).find(" KiB"),
              std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(BothContainers, Limits, ::testing::Values(Container::tar, Container::tgz),
                         [](const auto& instance) {
                             return instance.param == Container::tar ? "Tar" : "Tgz";
                         });

}  // namespace vesk::testing
