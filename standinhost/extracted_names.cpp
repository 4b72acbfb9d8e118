// SPDX-License-Identifier: MIT
// Counting names: the noted ones by their hashes, those on disk by reading directories.
#include "standinhost/extracted_names.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>

#include "standinhost/open_directory.h"

namespace vesk::standin {

namespace {

/// Tells whether the name is known to be in its normal form. Returns false for every name with a
/// component that begins with a dot, even if its form is normal.
bool isNormal(std::string_view name) {
    return !name.starts_with('.') && name.find("/.") == std::string_view::npos &&
           name.find("//") == std::string_view::npos;
}

/// Tells whether the directory may have changed at `moment` or later, by its file system's clock.
/// That clock may stand still for some milliseconds: changes within them have the same time.
bool mayHaveChangedSince(timespec moment, Entry directory) {
    struct stat status {};
    if (fstatat(directory.directory, directory.name, &status, AT_SYMLINK_NOFOLLOW) != 0)
        return true;
    const timespec change = status.st_mtim;
    return change.tv_sec != moment.tv_sec ? change.tv_sec > moment.tv_sec
                                          : change.tv_nsec >= moment.tv_nsec;
}

/// Returns the directory's name as a system call takes it.
const char* pathOf(const std::string& directory) {
    return directory.empty() ? "." : directory.c_str();
}

}  // namespace

void ExtractedNames::note(std::string_view name) {
    // The module converts an entry's name twice: to judge it, and to form the path of its target.
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

    struct stat above {};
    fstatat(tree, "..", &above, AT_SYMLINK_NOFOLLOW);
    moved_ = above.st_mtim;
    std::size_t count = 0;
    directories_ = {{"", 0}};
    for (std::size_t index = 0; index < directories_.size(); ++index) {
        const std::string name = directories_[index].name;
        const FileDescriptor directory = openDirectory({tree, pathOf(name)});
        if (!directory) {
            directories_[index].entries = hashes_.size();
            return errno == EACCES;
        }
        NameReader names(directory.number());
        std::size_t entries = 0;
        while (const char* entry = names.next()) {
            ++entries;
            if (names.isDirectory()) directories_.push_back({name + entry + '/', 0});
        }
        directories_[index].entries = entries;
        count += entries;
    }
    return count >= hashes_.size();
}

// The tree is in its place already, so this must not throw.
bool ExtractedNames::areStillIn(int tree) const noexcept {
    std::size_t count = 0;
    for (const ReadDirectory& read : directories_) {
        const Entry entry{tree, pathOf(read.name)};
        if (!mayHaveChangedSince(moved_, entry)) {
            count += read.entries;
            continue;
        }
        const FileDescriptor directory = openDirectory(entry);
        if (!directory) return errno == EACCES;
        for (NameReader names(directory.number()); names.next() != nullptr;)
            ++count;
    }
    return count >= hashes_.size();
}

}  // namespace vesk::standin
