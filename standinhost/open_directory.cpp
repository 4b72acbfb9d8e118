// SPDX-License-Identifier: MIT
// Entries of open directories: all system calls take a descriptor and a name.
#include "standinhost/open_directory.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace vesk::standin {

namespace {

/// Returns the ID of the mount on which the entry lies, or on which its directory lies if the name
/// is empty; -1 when the file system does not tell.
int mountOf(Entry entry) {
    file_handle none{};
    int mount = -1;
    const int flags = *entry.name == '\0' ? AT_EMPTY_PATH : 0;
    const bool isTold = name_to_handle_at(entry.directory, entry.name, &none, &mount, flags) == 0 ||
                        errno == EOVERFLOW;
    return isTold ? mount : -1;
}

/// Used where the system does not report mount points: tells whether another mount or another file
/// system begins at the entry.
bool isOnAnotherFileSystem(Entry entry) {
    struct stat parent {};
    struct stat status {};
    if (mountOf(entry) != mountOf({entry.directory, ""})) return true;
    return fstat(entry.directory, &parent) == 0 &&
           fstatat(entry.directory, entry.name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           parent.st_dev != status.st_dev;
}

}  // namespace

FileDescriptor::~FileDescriptor() {
    if (number_ != -1) close(number_);
}

EntryKind kindOf(Entry entry) {
    struct statx status {};
    if (statx(entry.directory, entry.name, AT_SYMLINK_NOFOLLOW, STATX_TYPE, &status) != 0)
        return errno == ENOENT ? EntryKind::nothing : EntryKind::unknown;
    const bool tellsMounts = (status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0;
    const bool isMounted = tellsMounts ? (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0
                                       : isOnAnotherFileSystem(entry);
    if (isMounted) return EntryKind::mountPoint;
    if (S_ISDIR(status.stx_mode)) return EntryKind::directory;
    return S_ISREG(status.stx_mode) ? EntryKind::regularFile : EntryKind::other;
}

FileDescriptor openDirectory(Entry entry) {
    return FileDescriptor(openat(entry.directory, entry.name,
                                 O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

bool isOpenAs(Entry entry, int descriptor) {
    struct stat named {};
    struct stat open {};
    return fstatat(entry.directory, entry.name, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           fstat(descriptor, &open) == 0 && isSameFile(named, open);
}

// The buffer need not be cleared: only what the system has written there is read.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
NameReader::NameReader(int directory) : directory_(directory) {
    lseek(directory, 0, SEEK_SET);
}

const char* NameReader::next() {
    while (position_ < end_ || refill()) {
        last_ = reinterpret_cast<const dirent64*>(buffer_.data() + position_);
        position_ += last_->d_reclen;
        const std::string_view name = last_->d_name;
        if (name != "." && name != "..") return last_->d_name;
    }
    return nullptr;
}

bool NameReader::isDirectory() const {
    // Not every file system gives the type.
    return last_->d_type == DT_UNKNOWN ? kindOf({directory_, last_->d_name}) == EntryKind::directory
                                       : last_->d_type == DT_DIR;
}

bool NameReader::refill() {
    const ssize_t count = getdents64(directory_, buffer_.data(), buffer_.size());
    position_ = 0;
    end_ = count > 0 ? static_cast<std::size_t>(count) : 0;
    return count > 0;
}

bool isEmptyDirectory(Entry entry) {
    const FileDescriptor directory = openDirectory(entry);
    return directory && NameReader(directory.number()).next() == nullptr;
}

}  // namespace vesk::standin
