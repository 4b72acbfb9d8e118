// SPDX-License-Identifier: MIT
// Removing through open directories. After each file, checks whether the tree is in its place.
#include "tests/disturbance/tree_remover.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string_view>
#include <utility>

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

constexpr int openFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// An open directory, closed by the destructor. As a condition it is false when it could not be
/// opened.
using OpenDirectory = std::unique_ptr<DIR, decltype([](DIR* stream) { closedir(stream); })>;

OpenDirectory openDirectory(int parent, const char* name) {
    const int directory = openat(parent, name, openFlags);
    return OpenDirectory(directory == -1 ? nullptr : fdopendir(directory));
}

bool isSame(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

const char* nextName(DIR* directory) {
    while (const dirent* entry = readdir(directory)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") return entry->d_name;
    }
    return nullptr;
}

}  // namespace

TreeRemover::TreeRemover(int tree, fs::path destination)
    : tree_(tree), destination_(std::move(destination)) {}

TreeRemover::~TreeRemover() {
    if (tree_ != -1) close(tree_);
}

void TreeRemover::removeStaging(const fs::path& staging) {
    const OpenDirectory directory = openDirectory(AT_FDCWD, staging.c_str());
    if (!directory) return;
    while (const char* name = nextName(directory.get())) {
        if (unlinkat(dirfd(directory.get()), name, 0) != 0)
            removeRoot(dirfd(directory.get()), name);
    }
    rmdir(staging.c_str());
}

void TreeRemover::removeTree(const fs::path& staging) {
    const OpenDirectory directory = openDirectory(AT_FDCWD, staging.c_str());
    if (directory) removeRoot(dirfd(directory.get()), "tree");
}

void TreeRemover::removeFile(const fs::path& staging, const std::string& name) {
    const Directory tree{AT_FDCWD, true, ""};
    if (unlink((staging / "tree" / name).c_str()) == 0) note(tree, name, true);
}

/// Removes the tree at `name` in the staging directory, the new one or the old one.
void TreeRemover::removeRoot(int staging, const char* name) {
    const OpenDirectory root = openDirectory(staging, name);
    if (!root) return;
    const Directory directory{dirfd(root.get()), isNewTree(dirfd(root.get())), ""};
    while (const char* entry = nextName(root.get()))
        removeEntry(directory, entry);
    if (unlinkat(staging, name, AT_REMOVEDIR) == 0) note(directory, "", false);
}

void TreeRemover::removeEntry(const Directory& directory, const char* entry) {
    if (unlinkat(directory.number, entry, 0) == 0) return note(directory, entry, true);
    const OpenDirectory opened = openDirectory(directory.number, entry);
    if (!opened) return;
    const Directory inner{dirfd(opened.get()), directory.isOfNewTree, directory.name + entry + "/"};
    while (const char* name = nextName(opened.get()))
        removeEntry(inner, name);
    if (unlinkat(directory.number, entry, AT_REMOVEDIR) == 0) note(directory, entry, false);
}

void TreeRemover::note(const Directory& directory, const std::string& entry, bool isFile) {
    if (!directory.isOfNewTree) {
        removed_.fromOld.insert(directory.name + entry);
    } else if (isPlaced()) {
        removed_.fromPlaced.insert(directory.name + entry);
    } else if (isFile) {
        removed_.fileBeforePlaced = true;
    }
}

bool TreeRemover::isNewTree(int directory) const {
    struct stat opened {};
    struct stat tree {};
    return fstat(directory, &opened) == 0 && fstat(tree_, &tree) == 0 && isSame(opened, tree);
}

bool TreeRemover::isPlaced() const {
    struct stat placed {};
    struct stat tree {};
    return lstat(destination_.c_str(), &placed) == 0 && fstat(tree_, &tree) == 0 &&
           isSame(placed, tree);
}

}  // namespace vesk::testing
