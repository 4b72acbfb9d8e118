// SPDX-License-Identifier: MIT
// Counting names: those that were noted, by their hashes, and those on disk, by reading
// directories.
#include "standinhost/extracted_names.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>

#include "standinhost/open_directory.h"

namespace vesk::standin {

namespace {

/// Tells whether the name is in its normal form, or may be: names with a component that begins with
/// a dot are not looked at closer.
bool isNormal(std::string_view name) {
    return !name.starts_with('.') && name.find("/.") == std::string_view::npos &&
           name.find("//") == std::string_view::npos;
}

timespec changeOf(Entry entry) {
    struct stat status {};
    fstatat(entry.directory, entry.name, &status, AT_SYMLINK_NOFOLLOW);
    return status.st_mtim;
}

bool isChangedSince(timespec change, Entry entry) {
    struct stat status {};
    // One that is gone has changed the one above. And the tree may have got the permissions of a
    // directory that cannot be looked into.
    if (fstatat(entry.directory, entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
    return status.st_mtim.tv_sec != change.tv_sec || status.st_mtim.tv_nsec != change.tv_nsec;
}

/// Returns the directory's name for a system call.
const char* pathOf(const std::string& directory) {
    return directory.empty() ? "." : directory.c_str();
}

}  // namespace

void ExtractedNames::note(std::string_view name) {
    // Every name comes twice: to be judged, and to be written.
    if (name == last_) return;
    last_ = name;
    if (isNormal(name)) return noteNormal(name);
    noteNormal(std::filesystem::path(name).lexically_normal().native());
}

void ExtractedNames::noteNormal(std::string_view name) {
    const std::hash<std::string_view> hash;
    hashes_.push_back(hash(name));
    const std::size_t end = std::min(name.rfind('/'), name.size());
    const std::string_view directory =
        end == name.size() ? std::string_view() : name.substr(0, end);
    if (directory == lastDirectory_) return;
    lastDirectory_ = directory;
    for (std::size_t slash = name.find('/'); slash != std::string_view::npos;
         slash = name.find('/', slash + 1))
        hashes_.push_back(hash(name.substr(0, slash)));
}

bool ExtractedNames::areIn(int tree) {
    std::sort(hashes_.begin(), hashes_.end());
    hashes_.erase(std::unique(hashes_.begin(), hashes_.end()), hashes_.end());

    std::size_t count = 0;
    directories_ = {{"", changeOf({tree, "."})}};
    for (std::size_t index = 0; index < directories_.size(); ++index) {
        const std::string name = directories_[index].name;
        const FileDescriptor directory = openDirectory({tree, pathOf(name)});
        if (!directory) return errno == EACCES;
        NameReader names(directory.number());
        while (const char* entry = names.next()) {
            ++count;
            if (!names.isDirectory()) continue;
            directories_.push_back({name + entry + '/', changeOf({directory.number(), entry})});
        }
    }
    return count >= hashes_.size();
}

// By now the tree is in its place, so that this may not throw.
bool ExtractedNames::areStillIn(int tree) const noexcept {
    std::size_t count = 0;
    bool isChanged = false;
    for (const ReadDirectory& read : directories_)
        isChanged |= isChangedSince(read.changed, {tree, pathOf(read.name)});
    if (!isChanged) return true;
    for (const ReadDirectory& read : directories_) {
        const FileDescriptor directory = openDirectory({tree, pathOf(read.name)});
        if (!directory) return errno == EACCES;
        for (NameReader names(directory.number()); names.next() != nullptr;)
            ++count;
    }
    return count >= hashes_.size();
}

}  // namespace vesk::standin
