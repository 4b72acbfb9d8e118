// SPDX-License-Identifier: MIT
// Directories that are held open, and their entries: what is meant stays the same, whatever others
// do to the paths that lead there.
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
    /// Takes over `number`, the result of an open: none when it is -1.
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

/// A name in an open directory. Owns neither.
struct Entry {
    int directory;
    const char* name;
};

enum class EntryKind { nothing, directory, regularFile, mountPoint, other, unknown };

/// Tells what is at the entry, which is not followed if it is a symbolic link. A mount point is one
/// whatever is mounted there; `unknown` when the entry cannot be looked at.
EntryKind kindOf(Entry entry);

/// Opens the directory at the entry for reading its names; none when there is no directory, a
/// symbolic link included, or when permissions forbid it.
FileDescriptor openDirectory(Entry entry);

/// Tells whether two statuses are those of one file.
inline bool isSameFile(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Tells whether the entry, not followed, is the file that is open as `descriptor`.
bool isOpenAs(Entry entry, int descriptor);

/// Reads the names in an open directory from its beginning. Needs no memory but its own.
class NameReader {
public:
    explicit NameReader(int directory);

    /// Returns the next name but "." and "..", valid until the next call; null at the end and when
    /// the directory cannot be read.
    const char* next();

    /// Tells whether the name that came last is a directory's.
    bool isDirectory() const;

private:
    bool refill();

    int directory_;
    alignas(dirent64) std::array<char, 2048> buffer_;
    std::size_t position_ = 0;
    std::size_t end_ = 0;
    const dirent64* last_ = nullptr;
};

/// Tells whether the entry is a directory that can be read and holds nothing.
bool isEmptyDirectory(Entry entry);

}  // namespace vesk::standin
