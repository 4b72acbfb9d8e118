// SPDX-License-Identifier: MIT
// Asking the system about paths. Nothing is changed.
#include "explanation/path_state.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <system_error>
#include <vector>

#include "explanation/text.h"

namespace vesk::explanation {

namespace {

constexpr const char* aDirectory = "a directory";

std::string reason(int error) {
    return std::generic_category().message(error);
}

std::string because(const std::string& path, int error) {
    return inQuotes(path) + ": " + reason(error);
}

std::string linkTarget(const std::string& path) {
    std::error_code error;
    return std::filesystem::read_symlink(path, error).native();
}

/// Returns the path up to the end of the name that follows its first `begin` bytes.
std::string partOf(const std::string& path, std::size_t begin) {
    const std::size_t name = path.find_first_not_of('/', begin);
    return path.substr(0, name == std::string::npos ? name : path.find('/', name));
}

std::string tooLong(const std::string& part) {
    const std::size_t slash = part.rfind('/');
    const std::size_t name = slash == std::string::npos ? part.size() : part.size() - slash - 1;
    if (name > NAME_MAX)
        return "a name of " + bytes(name) + ", where the system takes " + std::to_string(NAME_MAX);
    return "a path of " + bytes(part.size()) + ", where the system takes " +
           std::to_string(PATH_MAX - 1);
}

/// Says why the last name of `part` is not found, although its directory is.
std::string partTrouble(const std::string& part, int error) {
    struct stat status {};
    const bool isLink = lstat(part.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
    if (error == ENAMETOOLONG) return tooLong(part);
    if (error == EACCES && !isLink) return because(directoryOf(part), error);
    if (error == EACCES)
        return inQuotes(part) + ": a link to " + inQuotes(linkTarget(part)) + ": " + reason(error);
    if (error == ENOTDIR && !isLink)
        return inQuotes(directoryOf(part)) + ": " + kindAt(directoryOf(part)) + ", no directory";
    if (error == ENOENT && isLink)
        return inQuotes(part) + ": a link to " + inQuotes(linkTarget(part)) +
               ", which leads nowhere";
    return because(part, error);
}

std::string existingPartOf(std::string path) {
    struct stat status {};
    while (stat(path.c_str(), &status) != 0 && directoryOf(path) != path)
        path = directoryOf(path);
    return path;
}

}  // namespace

std::string directoryOf(const std::string& path) {
    const std::string parent = std::filesystem::path(path).parent_path();
    return parent.empty() ? "." : parent;
}

std::string kindAt(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return "";
    switch (status.st_mode & S_IFMT) {
        case S_IFREG:
            return "a regular file of " + bytes(static_cast<std::uint64_t>(status.st_size));
        case S_IFDIR:
            return aDirectory;
        case S_IFIFO:
            return "a FIFO";
        case S_IFSOCK:
            return "a socket";
        case S_IFCHR:
            return "a character device";
        case S_IFBLK:
            return "a block device";
        default:
            return "a file of an unknown kind";
    }
}

bool isKernels(const std::string& path) {
    struct statfs system {};
    return statfs(path.c_str(), &system) == 0 &&
           (system.f_type == PROC_SUPER_MAGIC || system.f_type == SYSFS_MAGIC);
}

Lookup lookUp(const std::string& path) {
    std::string found = path.starts_with('/') ? "/" : ".";
    for (std::size_t length = 0; length < path.size();) {
        const std::string part = partOf(path, length);
        struct stat status {};
        if (stat(part.c_str(), &status) != 0) {
            const int error = errno;
            const bool isLink = lstat(part.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
            return {error, partTrouble(part, error), found, isLink};
        }
        length = part.size();
        found = part;
    }
    return {};
}

std::string directoryTrouble(const std::string& directory) {
    const Lookup found = lookUp(directory);
    if (found.error == 0) {
        const std::string kind = kindAt(directory);
        return kind == aDirectory ? "" : inQuotes(directory) + ": " + kind + ", no directory";
    }
    const bool isMissing = found.error == ENOENT && found.words.ends_with(reason(ENOENT));
    return isMissing ? makingTrouble(found.directory) : found.words;
}

std::string makingTrouble(const std::string& directory) {
    if (Lookup found = lookUp(directory); found.error != 0) return found.words;
    if (faccessat(AT_FDCWD, directory.c_str(), W_OK | X_OK, AT_EACCESS) != 0)
        return because(directory, errno);
    struct statvfs system {};
    const bool isFull =
        statvfs(directory.c_str(), &system) == 0 && system.f_files != 0 && system.f_favail == 0;
    return isFull ? inQuotes(directory) + ": its file system takes no more files" : "";
}

std::string accessTrouble(const std::string& path, bool isWriting) {
    if (Lookup found = lookUp(path); found.error != 0) return found.words;
    const bool isGranted =
        faccessat(AT_FDCWD, path.c_str(), isWriting ? W_OK : R_OK, AT_EACCESS) == 0;
    return isGranted ? "" : because(path, errno);
}

std::string roomTrouble(const std::string& path, std::uint64_t needed, std::uint64_t files) {
    const std::string existing = existingPartOf(path);
    struct statvfs system {};
    if (statvfs(existing.c_str(), &system) != 0) return "";
    const std::uint64_t available = std::uint64_t{system.f_bavail} * system.f_frsize;
    if (available < needed)
        return inQuotes(path) + ": " + bytes(needed) + " are needed, " + std::to_string(available) +
               " are free";
    // Some file systems do not count their files.
    const std::uint64_t more = system.f_favail;
    if (system.f_files == 0 || more >= files) return "";
    return inQuotes(path) + ": its file system has room for " + std::to_string(more) +
           " more files, and " + std::to_string(files) + " are needed";
}

std::string permitting(const std::string& path) {
    const Lookup found = lookUp(path);
    if (found.error == EACCES && found.isLink) return "permit that, or remove the link";
    const std::string closed = found.error == EACCES ? found.directory : path;
    struct stat status {};
    if (stat(closed.c_str(), &status) == 0 && status.st_uid != geteuid())
        return "only its owner or root can permit that";
    const char* const bits = found.error == EACCES ? "x " : S_ISDIR(status.st_mode) ? "rx " : "r ";
    return std::string("to permit that: chmod u+") + bits + shellWord(closed);
}

std::string descriptorTrouble() {
    // Those that a call of the module needs at once, for a tree of some depth.
    constexpr std::size_t needed = 20;
    std::vector<int> descriptors;
    while (descriptors.size() < needed && (descriptors.empty() || descriptors.back() != -1))
        descriptors.push_back(open("/", O_PATH | O_CLOEXEC));
    const bool isTooFew = descriptors.back() == -1 && errno == EMFILE;
    for (const int descriptor : descriptors)
        if (descriptor != -1) close(descriptor);
    if (!isTooFew) return "";
    return "the process can open only " + std::to_string(descriptors.size() - 1) + " of " +
           std::to_string(needed) + " files that it may need at a time";
}

std::optional<std::uint64_t> fileSizeLimit() {
    struct rlimit limit {};
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return std::nullopt;
    return limit.rlim_cur;
}

}  // namespace vesk::explanation
