// SPDX-License-Identifier: MIT
// Three ways to rename without replacing, the safest first.
#include "commandline/file_placement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "commandline/terminal.h"

namespace vesk::commandline {

namespace {

FilePlacement renameAfterALook(const std::string& file, const std::string& target) {
    struct stat status {};
    if (lstat(target.c_str(), &status) == 0) return FilePlacement::targetExists;
    return replaceFile(file, target);
}

FilePlacement linkAndUnlink(const std::string& file, const std::string& target) {
    if (link(file.c_str(), target.c_str()) != 0) {
        return errno == EEXIST ? FilePlacement::targetExists : renameAfterALook(file, target);
    }
    if (unlink(file.c_str()) != 0 && errno != ENOENT) {
        say("vesk-archive: '" + file +
            "' could not be deleted: it is another name of the archive and can be removed");
    }
    return FilePlacement::done;
}

}  // namespace

FilePlacement placeNewFile(const std::string& file, const std::string& target) {
    if (renameat2(AT_FDCWD, file.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0)
        return FilePlacement::done;
    if (errno == EEXIST) return FilePlacement::targetExists;
    const bool isUnknown = errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP;
    return isUnknown ? linkAndUnlink(file, target) : FilePlacement::failed;
}

FilePlacement replaceFile(const std::string& file, const std::string& target) {
    const bool isDone = std::rename(file.c_str(), target.c_str()) == 0;
    return isDone ? FilePlacement::done : FilePlacement::failed;
}

}  // namespace vesk::commandline
