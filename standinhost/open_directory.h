// SPDX-License-Identifier: MIT
// Directories that are held open, and their entries. An open directory stays the same one, whatever
// others do to the paths that lead to it.
#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <utility>

namespace vesk::standin {

/// Owns an open file descriptor, or none.
class FileDescriptor {
public:
    FileDescriptor() noexcept = default;
    /// Takes ownership of `number`, the result of an open; -1 means no descriptor.
    explicit FileDescriptor(int number) noexcept : number_(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor();

    int number() const noexcept { return number_; }
    explicit operator bool() const noexcept { return number_ != -1; }

private:
    int number_ = -1;
};

/// A name in an open directory. Owns neither of them.
struct Entry {
    int directory;
    const char* name;
};

enum class EntryKind { nothing, directory, regularFile, mountPoint, other, unknown };

/// Returns the kind of what is at the entry; a symbolic link is not followed. A mount point is
/// `mountPoint` whatever is mounted there. `unknown` means that the entry cannot be examined.
EntryKind kindOf(Entry entry);

/// Opens the directory at the entry for reading its names. Returns no descriptor when there is no
/// directory (a symbolic link is none) or when it cannot be opened; errno then holds the reason.
FileDescriptor openDirectory(Entry entry);

/// Tells whether both statuses belong to the same file.
inline bool isSameFile(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Tells whether the entry is the file that is open as `descriptor`. A link is not followed.
bool isOpenAs(Entry entry, int descriptor);

/// Reads the names in an open directory from its beginning. Allocates nothing.
class NameReader {
public:
    explicit NameReader(int directory);

    /// Returns the next name, without "." and ".."; it is valid until the next call. Returns null
    /// at the end and when the directory cannot be read.
    const char* next();

    /// Tells whether the last returned name is that of a directory.
    bool isDirectory() const;

private:
    bool refill();

    int directory_;
    alignas(dirent64) std::array<char, 2048> buffer_;
    std::size_t position_ = 0;
    std::size_t end_ = 0;
    const dirent64* last_ = nullptr;
};

/// Tells whether the entry is a directory that can be read and is empty.
bool isEmptyDirectory(Entry entry);

}  // namespace vesk::standin
