// SPDX-License-Identifier: MIT
// Reading a tree from the disk, only by file descriptors: no link is followed.
#include "tests/sandbox/snapshot.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdio>
#include <memory>
#include <stdexcept>

namespace vesk::testing {

namespace {

[[noreturn]] void fail(const char* doing, const std::string& path) {
    std::perror(doing);
    throw std::runtime_error(std::string("cannot ") + doing + " " + visible(path));
}

/// Gives the owner the missing permissions for as long as it lives; root needs none.
class OpenedUp {
public:
    OpenedUp(int directory, const char* name, const struct stat& status)
        : directory_(directory), name_(name), mode_(status.st_mode & 07777U) {
        changed_ = geteuid() != 0 && (mode_ & 0700U) != 0700U &&
                   fchmodat(directory_, name_, mode_ | 0700U, 0) == 0;
    }
    ~OpenedUp() {
        if (changed_ && fchmodat(directory_, name_, mode_, 0) != 0) std::abort();
    }
    OpenedUp(const OpenedUp&) = delete;
    OpenedUp& operator=(const OpenedUp&) = delete;

private:
    int directory_;
    const char* name_;
    mode_t mode_;
    bool changed_ = false;
};

std::string readAll(int file, const std::string& path) {
    std::string content;
    std::array<char, 16384> piece{};
    ssize_t count = 0;
    while ((count = read(file, piece.data(), piece.size())) > 0)
        content.append(piece.data(), static_cast<std::size_t>(count));
    close(file);
    if (count < 0) fail("read", path);
    return content;
}

std::string linkTarget(int directory, const char* name, const std::string& path) {
    std::string target(PATH_MAX, '\0');
    const ssize_t length = readlinkat(directory, name, target.data(), target.size());
    if (length < 0) fail("read the link", path);
    target.resize(static_cast<std::size_t>(length));
    return target;
}

void readDirectory(int directory, const std::string& prefix, Snapshot& snapshot);

void readThing(int directory, const char* name, const std::string& path, Snapshot& snapshot) {
    struct stat status {};
    if (fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) != 0) fail("look at", path);
    Thing thing{status.st_mode, status.st_uid, status.st_gid, status.st_ino, {}};
    if (thing.isLink()) thing.content = linkTarget(directory, name, path);
    if (thing.isRegular() || thing.isDirectory()) {
        const OpenedUp opened(directory, name, status);
        const int file = openat(directory, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
        if (file < 0) fail("open", path);
        if (thing.isRegular()) thing.content = readAll(file, path);
        if (thing.isDirectory()) readDirectory(file, path + "/", snapshot);
    }
    snapshot.emplace(path, std::move(thing));
}

/// Closes `directory` at the end.
void readDirectory(int directory, const std::string& prefix, Snapshot& snapshot) {
    const std::unique_ptr<DIR, int (*)(DIR*)> list(fdopendir(directory), closedir);
    if (!list) fail("list", prefix);
    while (const dirent* entry = readdir(list.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            readThing(dirfd(list.get()), entry->d_name, prefix + name, snapshot);
        }
    }
}

const char* differenceOf(const Thing& expected, const Thing& found) {
    if (expected.type() != found.type()) return "has another type";
    if (expected.content != found.content) return "has other content";
    if (expected.uid != found.uid) return "has another owner";
    // An unknown inode marks a new object. Its special bits may come from its parent.
    const mode_t compared = expected.inode == 0 ? 0777U : 07777U;
    if ((expected.mode & compared) != (found.mode & compared)) return "has another mode";
    if (expected.gid != anyGroup && expected.gid != found.gid) return "has another group";
    return expected.inode == 0 || expected.inode == found.inode ? nullptr : "has another inode";
}

}  // namespace

Snapshot takeSnapshot(const std::filesystem::path& directory) {
    Snapshot snapshot;
    const int opened = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (opened < 0) fail("open", directory);
    readDirectory(opened, "", snapshot);
    return snapshot;
}

bool isAtOrBelow(const std::string& path, const std::string& directory) {
    if (directory.empty() || path == directory) return true;
    return path.size() > directory.size() && path.starts_with(directory) &&
           path[directory.size()] == '/';
}

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

void eraseTree(Snapshot& snapshot, const std::string& path) {
    std::erase_if(snapshot, [&](const auto& entry) { return isAtOrBelow(entry.first, path); });
}

bool isEmptyDirectory(const Snapshot& snapshot, const std::string& path) {
    const auto at = snapshot.find(path);
    if (at == snapshot.end() || !at->second.isDirectory()) return false;
    // What is below sorts after `path + "/"`. Other names may come in between.
    const auto below = snapshot.lower_bound(path + "/");
    return below == snapshot.end() || !isAtOrBelow(below->first, path);
}

std::vector<Difference> differences(const Snapshot& expected, const Snapshot& found) {
    std::vector<Difference> all;
    for (const auto& [path, thing] : expected) {
        const auto there = found.find(path);
        const char* what = "vanished";
        if (there != found.end()) what = differenceOf(thing, there->second);
        if (what != nullptr) all.push_back({path, what});
    }
    for (const auto& [path, thing] : found) {
        if (!expected.contains(path)) all.push_back({path, "appeared"});
    }
    return all;
}

std::string visible(const std::string& text) {
    std::string line = "'";
    for (const char byte : text) {
        const auto value = static_cast<unsigned char>(byte);
        std::array<char, 5> octal{};
        std::snprintf(octal.data(), octal.size(), "\\%03o", static_cast<unsigned>(value));
        line += value < 0x20 || value >= 0x7F ? std::string(octal.data()) : std::string(1, byte);
    }
    return line + "'";
}

std::string listing(const Snapshot& snapshot) {
    std::string lines;
    for (const auto& [path, thing] : snapshot) {
        std::array<char, 64> front{};
        std::snprintf(front.data(), front.size(), "    %07o %5u ", thing.mode, thing.uid);
        lines += front.data() + visible(path);
        if (thing.isLink()) lines += " -> " + visible(thing.content);
        lines += "\n";
    }
    return lines;
}

}  // namespace vesk::testing
