// SPDX-License-Identifier: MIT
// Walking down the created directories, and removing them on the way back.
#include "commandline/made_parents.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace vesk::commandline {

namespace {

namespace fs = std::filesystem;

constexpr int flags = O_PATH | O_DIRECTORY | O_CLOEXEC;

bool isMissing(const fs::path& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}

/// Whether the directory opened as `below` is still the one of that name in `directory`.
bool isIn(int directory, const std::string& name, int below) {
    struct stat named {};
    struct stat opened {};
    return fstatat(directory, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           fstat(below, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

}  // namespace

MadeParents::MadeParents(const fs::path& file) {
    fs::path directory = file.parent_path();
    for (; !directory.empty() && isMissing(directory); directory = directory.parent_path())
        missing_.push_back(directory.filename().native());
    if (missing_.empty()) return;
    std::reverse(missing_.begin(), missing_.end());
    directories_.reserve(missing_.size() + 1);  // so that the destructor allocates nothing
    directories_.push_back(open(directory.empty() ? "." : directory.c_str(), flags));
}

bool MadeParents::sync() const {
    if (missing_.empty()) return true;
    int directory = openat(directories_.front(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    bool all = true;
    for (const std::string& name : missing_) {
        // Some file systems have nothing to do here, and report that as an error.
        all = all && (fsync(directory) == 0 || errno == EINVAL);
        const int below =
            openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        close(directory);
        directory = below;
    }
    close(directory);
    return all;
}

MadeParents::~MadeParents() {
    for (const std::string& name : missing_) {
        const int below = openat(directories_.back(), name.c_str(), flags | O_NOFOLLOW);
        if (below == -1) break;
        directories_.push_back(below);
    }
    for (; directories_.size() > 1; directories_.pop_back()) {
        const int below = directories_.back();
        const int directory = directories_[directories_.size() - 2];
        const std::string& name = missing_[directories_.size() - 2];
        // A directory that is not empty stays, and so do those above it.
        if (name != ".." && isIn(directory, name, below))
            unlinkat(directory, name.c_str(), AT_REMOVEDIR);
        close(below);
    }
    if (!directories_.empty()) close(directories_.front());
}

}  // namespace vesk::commandline
