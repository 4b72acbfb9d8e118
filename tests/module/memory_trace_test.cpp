// SPDX-License-Identifier: MIT
// Calls leave nothing behind in the memory of the process that makes them.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <string>

#include "tests/support/memory_dir.h"
#include "tests/support/module_calls.h"
#include "tests/support/recording_host.h"
#include "tests/support/temp_dir.h"

namespace vesk::testing {

namespace {

/// Returns the process's mappings: the number for each name, permissions and flags. Sizes are
/// omitted, since the allocator's heap grows with the memory of the test itself.
std::map<std::string, int> mappings() {
    std::map<std::string, int> result;
    std::ifstream file("/proc/self/smaps");
    std::string mapping;
    for (std::string line; std::getline(file, line);) {
        const std::size_t space = line.find(' ');
        if (line.starts_with("VmFlags:")) {
            ++result[mapping + line];
        } else if (line[space - 1] != ':') {
            // ADDRESSES PERMISSIONS OFFSET DEVICE INODE NAME
            mapping = line.substr(space, 5) + line.substr(std::min(line.size(), std::size_t{73}));
        }
    }
    return result;
}

int adviceOnLargePages(const std::map<std::string, int>& mappings) {
    int count = 0;
    for (const auto& [mapping, number] : mappings)
        if (mapping.find(" hg") != std::string::npos) count += number;
    return count;
}

class MemoryTrace : public ::testing::TestWithParam<Container> {
protected:
    MemoryTrace() {
        const std::string data(6'000'000, 'x');
        for (const char* name : {"source/a", "source/b", "source/sub/c"})
            writeFile(dir_->path() / name, data);
    }

    void makeAndUnpack(int number) {
        RecordingHost host;
        const std::string name = dir_->path() / std::to_string(number);
        makeArchive(GetParam(), (dir_->path() / "source").c_str(), (name + ".archive").c_str());
        unpackArchive(GetParam(), (name + ".archive").c_str(), name.c_str());
        EXPECT_EQ(host.raiseCount, 0);
    }

    const std::unique_ptr<TempDir> dir_ = makeMemoryDir();
};

}  // namespace

TEST_P(MemoryTrace, CallsLeaveTheMappingsAndFlagsThatWereThereBefore) {
    // An emulator has mappings of its own.
    const int adviceOfOthers = adviceOnLargePages(mappings());
    // What libraries set up on their first use stays from then on.
    makeAndUnpack(0);
    const std::map<std::string, int> before = mappings();
    EXPECT_EQ(adviceOnLargePages(before), adviceOfOthers);
    for (int number = 1; number <= 6; ++number) {
        makeAndUnpack(number);
        EXPECT_EQ(mappings(), before) << "after call " << number;
    }
}

INSTANTIATE_TEST_SUITE_P(EachClass, MemoryTrace, ::testing::Values(Container::tar, Container::tgz),
                         [](const auto& row) {
                             return row.param == Container::tar ? "tar" : "tgz";
                         });

}  // namespace vesk::testing
