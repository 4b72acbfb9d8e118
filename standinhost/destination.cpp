// SPDX-License-Identifier: MIT
// Finding a destination: the system opens its parent directory, so `..` after a symbolic link has
// its usual meaning.
#include "standinhost/destination.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <optional>
#include <system_error>
#include <utility>

namespace vesk::standin {

namespace {

namespace fs = std::filesystem;

constexpr const char* cannotInspect = "Cannot inspect destination";

/// The number of links in a row that the system follows.
constexpr int longestChain = 40;

/// Removes slashes and "." components from the end: with them the system would follow a symbolic
/// link before it could be examined.
fs::path withoutTrailingDots(fs::path path) {
    while ((!path.has_filename() || path.filename() == ".") && !path.parent_path().empty() &&
           path.has_relative_path())
        path = path.parent_path();
    return path;
}

FileDescriptor openForLookups(const fs::path& directory) {
    return FileDescriptor(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

/// Turns a path that ends in "." or ".." into one that ends in a name, or into that of the root
/// directory. Returns nothing when the path cannot be resolved.
std::optional<fs::path> named(fs::path path) {
    path = withoutTrailingDots(std::move(path));
    if (path.filename() != "." && path.filename() != "..") return path;
    const FileDescriptor directory = openForLookups(path);
    std::error_code error;
    fs::path canonical = fs::canonical(path, error);
    // Also false when the directory cannot be opened or the path cannot be resolved.
    const bool isSame = isOpenAs({AT_FDCWD, canonical.c_str()}, directory.number());
    return isSame ? std::optional(std::move(canonical)) : std::nullopt;
}

/// Opens the parent directory and splits off the name. Returns the message of a failure, or null on
/// success.
const char* locate(const fs::path& path, MadeParents* parents, Destination& found) {
    const std::optional<fs::path> entry = named(path);
    if (!entry) return cannotInspect;
    const fs::path parent = entry->has_parent_path() ? entry->parent_path() : ".";
    found.parent = openForLookups(parent);
    if (!found.parent && errno == ENOENT && parents != nullptr) {
        parents->make(parent);
        found.parent = openForLookups(parent);
    }
    if (!found.parent) {
        const bool leadsNowhere = errno == ENOENT || errno == ENOTDIR;
        return leadsNowhere ? "Cannot create destination parent directory" : cannotInspect;
    }
    found.name = entry->has_filename() ? entry->filename().native() : ".";
    found.path = *entry;
    std::error_code error;
    found.parentPath = fs::canonical(parent, error);
    if (error) found.parentPath = parent;
    return kindOf(found.entry()) == EntryKind::unknown ? cannotInspect : nullptr;
}

/// Tells whether the destination is a symbolic link that may be followed.
bool isLinkToFollow(const Destination& destination) {
    struct stat link {};
    struct stat directory {};
    const Entry entry = destination.entry();
    if (fstatat(entry.directory, entry.name, &link, AT_SYMLINK_NOFOLLOW) != 0 ||
        fstat(entry.directory, &directory) != 0)
        return false;
    // In a sticky directory any user could otherwise choose what is replaced.
    const bool isForeign = (directory.st_mode & S_ISVTX) != 0 && link.st_uid != geteuid();
    return S_ISLNK(link.st_mode) && !isForeign;
}

/// Finds the target of the link at `destination`; returns nothing when it cannot be resolved.
std::optional<Destination> follow(const Destination& destination) {
    std::error_code error;
    const fs::path target = fs::read_symlink(destination.path, error);
    Destination found;
    if (error || locate(destination.parentPath / target, nullptr, found) != nullptr)
        return std::nullopt;
    return found;
}

}  // namespace

void MadeParents::make(const fs::path& parent) {
    fs::path path;
    for (const fs::path& element : parent) {
        made_.push_back({path.empty() ? "." : path, element, {}});
        path /= element;
        const bool isMade =
            mkdir(path.c_str(), 0777) == 0 && lstat(path.c_str(), &made_.back().status) == 0;
        if (!isMade) made_.pop_back();
    }
}

void MadeParents::remove() noexcept {
    for (; !made_.empty(); made_.pop_back()) {
        const Made& last = made_.back();
        const FileDescriptor directory = openForLookups(last.directory);
        struct stat status {};
        const bool isStillIt =
            fstatat(directory.number(), last.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            isSameFile(status, last.status);
        if (isStillIt) unlinkat(directory.number(), last.name.c_str(), AT_REMOVEDIR);
    }
}

const char* findDestination(const fs::path& path, MadeParents* parents, Destination& found) {
    // The system refuses such a path, even if it is short enough without the dots at its end.
    if (path.native().size() >= PATH_MAX) return cannotInspect;
    if (const char* message = locate(path, parents, found)) return message;

    // If the system cannot follow the links to the end of their chain, none is followed: the first
    // link is the destination.
    const FileDescriptor end(open(found.path.c_str(), O_PATH | O_CLOEXEC));
    for (int links = 0; end && links < longestChain && isLinkToFollow(found); ++links) {
        std::optional<Destination> next = follow(found);
        if (!next) break;
        found = std::move(*next);
    }
    return nullptr;
}

const char* refusalOf(const Destination& destination, bool overwrite) {
    const Entry entry = destination.entry();
    const EntryKind kind = kindOf(entry);
    if (kind == EntryKind::nothing) return nullptr;
    if (!overwrite && !isEmptyDirectory(entry)) return "Destination already exists";
    const bool isReplaceable =
        (kind == EntryKind::directory && destination.name != ".") || kind == EntryKind::regularFile;
    return isReplaceable ? nullptr : "Destination cannot be replaced";
}

}  // namespace vesk::standin
