// SPDX-License-Identifier: MIT
// Making and removing new directories.
#include "hostcheck/scratch_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

namespace vesk::hostcheck {

namespace {

namespace fs = std::filesystem;

constexpr const char* memoryDirectory = "/dev/shm";

bool isOnAnotherFileSystem(const fs::path& one, const fs::path& other) {
    struct stat oneStatus {};
    struct stat otherStatus {};
    return stat(one.c_str(), &oneStatus) == 0 && stat(other.c_str(), &otherStatus) == 0 &&
           oneStatus.st_dev != otherStatus.st_dev;
}

}  // namespace

ScratchDirectory::ScratchDirectory(const fs::path& parent) {
    // If a killed process leaves a directory behind, the process number tells whose it was.
    const std::string prefix = "vesk-host-check-" + std::to_string(getpid());
    std::string name = (parent / (prefix + "-XXXXXX")).native();
    if (mkdtemp(name.data()) == nullptr) {
        throw fs::filesystem_error("cannot make a directory for trials", parent,
                                   std::error_code(errno, std::generic_category()));
    }
    path_ = name;
}

ScratchDirectory::~ScratchDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::vector<fs::path> scratchParents() {
    std::vector<fs::path> parents = {fs::absolute(fs::temp_directory_path())};
    if (access(memoryDirectory, W_OK | X_OK) == 0 &&
        isOnAnotherFileSystem(memoryDirectory, parents.front())) {
        parents.emplace_back(memoryDirectory);
    }
    return parents;
}

}  // namespace vesk::hostcheck
