// SPDX-License-Identifier: MIT
// Deleting in passes over a directory, until a pass changes nothing.
#include "standinhost/tree_deletion.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "standinhost/open_directory.h"

namespace vesk::standin {

namespace {

/// The maximum number of directories below the top that are open at once.
constexpr int deepest = 16;

class Deletion {
public:
    explicit Deletion(int top) : top_(top) {}

    Rest run() {
        do {
            hasChanged_ = hasMounts_ = false;
            empty(top_, 0);
        } while (hasChanged_);
        if (hasMounts_) return Rest::mountedPlace;
        return NameReader(top_).next() == nullptr ? Rest::nothing : Rest::something;
    }

private:
    void empty(int directory, int depth);
    void remove(Entry entry, int depth);
    void removeDirectory(Entry entry, int depth);
    void moveToTop(Entry entry);

    int top_;
    unsigned lastNumber_ = 0;
    bool hasChanged_ = false;
    bool hasMounts_ = false;
};

/// Gives the owner all permissions for the directory, if it belongs to this user.
void allowOwner(Entry entry) {
    // The next step shows whether that has helped.
    [[maybe_unused]] const int result =
        fchmodat(entry.directory, entry.name, S_IRWXU, AT_SYMLINK_NOFOLLOW);
}

FileDescriptor openToEmpty(Entry entry) {
    FileDescriptor directory = openDirectory(entry);
    if (!directory && errno == EACCES) {
        allowOwner(entry);
        return openDirectory(entry);
    }
    struct stat status {};
    const bool isReadOnly = directory && fstat(directory.number(), &status) == 0 &&
                            (status.st_mode & S_IRWXU) != S_IRWXU;
    if (isReadOnly) fchmod(directory.number(), S_IRWXU);
    return directory;
}

// NOLINTNEXTLINE(misc-no-recursion): bounded by `deepest`
void Deletion::empty(int directory, int depth) {
    NameReader names(directory);
    while (const char* name = names.next())
        remove({directory, name}, depth);
}

// NOLINTNEXTLINE(misc-no-recursion): bounded by `deepest`
void Deletion::remove(Entry entry, int depth) {
    if (unlinkat(entry.directory, entry.name, 0) == 0) {
        hasChanged_ = true;
        return;
    }
    const EntryKind kind = kindOf(entry);
    if (kind == EntryKind::directory) removeDirectory(entry, depth);
    if (kind == EntryKind::mountPoint) hasMounts_ = true;
}

// NOLINTNEXTLINE(misc-no-recursion): bounded by `deepest`
void Deletion::removeDirectory(Entry entry, int depth) {
    const FileDescriptor directory = depth < deepest ? openToEmpty(entry) : FileDescriptor();
    const bool isOutOfReach = depth == deepest || (!directory && errno != EACCES);
    if (isOutOfReach && entry.directory != top_) return moveToTop(entry);
    if (directory) empty(directory.number(), depth + 1);
    if (unlinkat(entry.directory, entry.name, AT_REMOVEDIR) == 0) hasChanged_ = true;
}

void Deletion::moveToTop(Entry entry) {
    std::array<char, 16> number{};
    std::snprintf(number.data(), number.size(), "%u", ++lastNumber_);
    // Moving a directory to another parent needs write permission for the directory itself.
    allowOwner(entry);
    if (renameat(entry.directory, entry.name, top_, number.data()) == 0) hasChanged_ = true;
}

}  // namespace

Rest deleteContents(int top) noexcept {
    return Deletion(top).run();
}

}  // namespace vesk::standin
