// SPDX-License-Identifier: MIT
// Looking at the new archive's path before anything is done.
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

/// The module is never to find at the path what was just found there to be in its way, only for
/// that to be gone: it is handed this instead, which always exists and can never be written to.
constexpr const char* alwaysInTheWay = "/";

ArchiveTarget written(const std::string& directly, bool overwrite) {
    return {directly, overwrite, std::nullopt};
}

/// The module says that the archive exists already.
ArchiveTarget refusedAsExisting() {
    return {alwaysInTheWay, false, std::nullopt};
}

/// The module says, once it has come to the writing, that the archive cannot be created.
ArchiveTarget refusedAtTheEnd() {
    return {alwaysInTheWay, true, std::nullopt};
}

fs::path directoryOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

bool isNamed(const fs::path& path) {
    return path.has_filename() && path.filename() != "." && path.filename() != "..";
}

/// Whether the link leads to an open file, as that behind /dev/stdout does: such a file is written
/// to, never replaced, since whoever has opened it waits for it.
bool leadsToOpenFile(const fs::path& link) {
    struct statfs system {};
    return statfs(directoryOf(link).c_str(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

/// Whether somebody else may have put the link there, for what it points at to be replaced.
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

/// Follows `path` to something that is no link, or to nothing.
LinkEnd followed(fs::path path) {
    constexpr int longestChain = 40;  // as the kernel has it
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

/// Whether the file may be written to, if it is there: it is no right of the directory alone that
/// it be replaced.
bool mayBeWritten(const fs::path& file) {
    const int descriptor =
        open(file.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
    if (descriptor == -1) return errno == ENOENT || errno == ENOTDIR;
    close(descriptor);
    return true;
}

/// The same path through an open directory, for one that is longer than the kernel takes.
std::optional<std::string> withoutItsDirectories(const fs::path& path) {
    const int directory = open(directoryOf(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (directory == -1) return std::nullopt;
    return "/proc/self/fd/" + std::to_string(directory) + "/" + path.filename().native();
}

/// The target at the end of the links: the module writes beside it. It makes missing directories of
/// the path that was named, but none of a path that a link names.
ArchiveTarget besideEnd(const std::string& archive, const fs::path& end) {
    std::error_code error;
    const bool isLinked = end != fs::path(archive);
    if (isLinked && !fs::is_directory(directoryOf(end), error)) return refusedAtTheEnd();
    if (!mayBeWritten(end)) return refusedAtTheEnd();

    const std::string path = makingPath(end);
    const auto shorter = path.size() < PATH_MAX ? std::optional(path) : withoutItsDirectories(path);
    return shorter ? ArchiveTarget{*shorter, true, end} : written(archive, true);
}

bool canBeArchived(const std::string& source) {
    std::error_code error;
    return fs::is_regular_file(source, error) || fs::is_directory(source, error);
}

/// For a source that there is not: a path where the module finds no directory to make before it
/// says so. Nothing where it would fail to make one, which it is to say first.
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
    // Should the source come there meanwhile, it fails when the file is to take its place.
    return ArchiveTarget{makingPath(directory / archive.filename()), true, archive};
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
