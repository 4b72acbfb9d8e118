// SPDX-License-Identifier: MIT
// Examining the new archive's path before anything is done.
#include "commandline/archive_target.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <system_error>

#include "commandline/making_file.h"

namespace vesk::commandline {

namespace {

namespace fs = std::filesystem;

/// The module gets this path when the check here found something in the way. What was found could
/// be gone by the time the module looks; this path always exists and can never be written to.
constexpr const char* alwaysInTheWay = "/";

ArchiveTarget written(const std::string& directly, bool overwrite) {
    return {directly, overwrite, std::nullopt};
}

/// Makes the module say that the archive exists already.
ArchiveTarget refusedAsExisting() {
    return {alwaysInTheWay, false, std::nullopt};
}

/// Makes the module say, once it has built the archive, that the file cannot be created.
ArchiveTarget refusedAtTheEnd() {
    return {alwaysInTheWay, true, std::nullopt};
}

fs::path directoryOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

bool isNamed(const fs::path& path) {
    return path.has_filename() && path.filename() != "." && path.filename() != "..";
}

/// Whether the link leads to an open file, like the one behind /dev/stdout. Such a file is written
/// to and never replaced, since whoever opened it waits for the data.
bool leadsToOpenFile(const fs::path& link) {
    struct statfs system {};
    return statfs(directoryOf(link).c_str(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

/// Whether somebody else may have put the link there to have its target replaced.
bool isTrap(const fs::path& link, const struct stat& status) {
    struct stat directory {};
    if (stat(directoryOf(link).c_str(), &directory) != 0) return true;
    return (directory.st_mode & S_ISVTX) != 0 && status.st_uid != geteuid() &&
           status.st_uid != directory.st_uid;
}

/// The end of a chain of links.
struct LinkEnd {
    enum class Kind { file, openFile, refused } kind;
    fs::path path;
};

/// Follows the links from `path` to something that is no link, or to a missing file.
LinkEnd followed(fs::path path) {
    constexpr int longestChain = 40;  // the kernel's limit
    for (int links = 0; links <= longestChain; ++links) {
        struct stat status {};
        const bool exists = lstat(path.c_str(), &status) == 0;
        if (!exists || !S_ISLNK(status.st_mode)) return {LinkEnd::Kind::file, path};
        if (leadsToOpenFile(path)) return {LinkEnd::Kind::openFile, path};
        if (isTrap(path, status)) break;
        std::error_code error;
        const fs::path link = fs::read_symlink(path, error);
        if (error) break;
        path = path.parent_path() / link;
    }
    return {LinkEnd::Kind::refused, {}};
}

/// Whether the file is missing or may be written to. Whoever may write only to its directory could
/// replace it all the same; this program does not.
bool mayBeWritten(const fs::path& file) {
    const int descriptor =
        open(file.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
    if (descriptor == -1) return errno == ENOENT || errno == ENOTDIR;
    close(descriptor);
    return true;
}

/// The same file, named through its directory, which stays open: for a path longer than the kernel
/// accepts.
std::optional<std::string> withoutItsDirectories(const fs::path& path) {
    const int directory = open(directoryOf(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    const std::string shorter = "/proc/self/fd/" + std::to_string(directory);
    std::error_code error;
    if (directory == -1 || !fs::is_directory(shorter, error)) return std::nullopt;
    return shorter + "/" + path.filename().native();
}

/// The module writes beside the target at the end of the links. It creates missing directories of
/// the path given by the user, but not those of a path that a link names.
ArchiveTarget besideEnd(const std::string& archive, const fs::path& end) {
    std::error_code error;
    const bool isLinked = end != fs::path(archive);
    if (isLinked && !fs::is_directory(directoryOf(end), error)) return refusedAtTheEnd();
    if (!mayBeWritten(end)) return refusedAtTheEnd();

    std::optional<std::string> path = makingPath(end);
    if (path && path->size() >= PATH_MAX) path = withoutItsDirectories(*path);
    return path ? ArchiveTarget{*path, true, end} : refusedAtTheEnd();
}

bool canBeArchived(const std::string& source) {
    std::error_code error;
    return fs::is_regular_file(source, error) || fs::is_directory(source, error);
}

/// For a source that cannot be archived: a path for which the module creates no directory before it
/// refuses the source. Nothing if the module would fail to create the archive's directory, since it
/// reports that failure first.
std::optional<ArchiveTarget> withoutNewDirectories(const fs::path& archive) {
    std::error_code error;
    fs::path directory = archive.parent_path();
    bool canBeNamed = true;
    for (; !directory.empty() && !fs::exists(directory, error); directory = directory.parent_path())
        canBeNamed = canBeNamed && directory.filename().native().size() <= NAME_MAX;
    if (directory.empty()) directory = ".";
    const bool canBeMadeIn = canBeNamed && fs::is_directory(directory, error) &&
                             faccessat(AT_FDCWD, directory.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
    if (!canBeMadeIn) return std::nullopt;
    // If the source appears meanwhile, moving the file into place fails.
    const std::optional<std::string> path = makingPath(directory / archive.filename());
    return path ? ArchiveTarget{*path, true, archive} : refusedAtTheEnd();
}

}  // namespace

ArchiveTarget findArchiveTarget(const std::string& archive, const std::string& source,
                                bool overwrite) {
    std::error_code error;
    const fs::file_status status = fs::status(archive, error);
    if (archive.empty() || status.type() == fs::file_type::none) return written(archive, overwrite);
    if (fs::exists(status) && !overwrite) return refusedAsExisting();
    if (fs::is_directory(status)) return refusedAtTheEnd();
    if (fs::exists(status) && !fs::is_regular_file(status)) return written(archive, overwrite);

    if (!fs::exists(directoryOf(archive), error) && !canBeArchived(source)) {
        if (auto target = withoutNewDirectories(archive)) return *target;
    }
    if (!isNamed(archive)) return written(archive, overwrite);

    const LinkEnd end = followed(archive);
    if (end.kind == LinkEnd::Kind::openFile) return written(archive, overwrite);
    if (end.kind == LinkEnd::Kind::refused) return refusedAtTheEnd();
    return besideEnd(archive, end.path);
}

}  // namespace vesk::commandline
