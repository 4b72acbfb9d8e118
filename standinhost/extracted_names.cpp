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

/// A directory of the tree, and when it was changed last before it was read.
struct ReadDirectory {
    std::string name;  ///< below the tree, with a slash at its end; empty for the tree itself
    timespec changed;
};

/// Tells whether the name is in its normal form, or may be: names with a component that begins with
/// a dot are not looked at closer.
bool isNormal(std::string_view name) {
    return !name.starts_with('.') && name.find("/.") == std::string_view::npos &&
           name.find("//") == std::string_view::npos;
}

timespec changeOf(Entry entry) {
    struct stat status {};
    fstatat(entry.directory, entry.name, &status, AT_SYMLINK_NOFOLLOW);
    return status.st_ctim;
}

/// Returns the directory's name for a system call.
std::string pathOf(const std::string& directory) {
    return directory.empty() ? "." : directory;
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
    std::vector<ReadDirectory> directories = {{"", changeOf({tree, "."})}};
    for (std::size_t index = 0; index < directories.size(); ++index) {
        const std::string name = directories[index].name;
        const FileDescriptor directory = openDirectory({tree, pathOf(name).c_str()});
        if (!directory) return errno == EACCES;
        NameReader names(directory.number());
        while (const char* entry = names.next()) {
            ++count;
            if (!names.isDirectory()) continue;
            directories.push_back({name + entry + '/', changeOf({directory.number(), entry})});
        }
    }
    const auto isUnchanged = [tree](const ReadDirectory& read) {
        const timespec now = changeOf({tree, pathOf(read.name).c_str()});
        return now.tv_sec == read.changed.tv_sec && now.tv_nsec == read.changed.tv_nsec;
    };
    return count >= hashes_.size() &&
           std::all_of(directories.begin(), directories.end(), isUnchanged);
}

}  // namespace vesk::standin
