// SPDX-License-Identifier: MIT
// Runs a fuzz target once on every file below the given directories: makes the target an ordinary
// program, for builds without a fuzzing engine.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesBelow(const fs::path& directory) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
        if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

// Gives the target an allocation of exactly the file's size, so that a sanitizer notices a byte
// read beyond it.
void replay(const fs::path& file) {
    const std::string content = vesk::testing::readFile(file);
    const auto input = std::make_unique<std::uint8_t[]>(content.size());
    std::copy(content.begin(), content.end(), input.get());
    std::fprintf(stderr, "%s\n", file.c_str());
    LLVMFuzzerTestOneInput(input.get(), content.size());
}

}  // namespace

int main(int argc, char** argv) {
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const fs::path& file : filesBelow(argv[i])) {
            replay(file);
            ++count;
        }
    }
    std::fprintf(stderr, "%zu inputs replayed\n", count);
    // An empty corpus would test nothing.
    return count == 0 ? 1 : 0;
}
