// SPDX-License-Identifier: MIT
// Recognising files and directories by their identity, not their spelling.
#include "commandline/mistake.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string_view>
#include <system_error>

#include "commandline/archive_format.h"

namespace vesk::commandline {

namespace {

namespace fs = std::filesystem;

bool isSame(const struct stat& left, const struct stat& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

/// Whether `directory` is `place`, which is a directory, or above it.
bool isAtOrAbove(const std::string& directory, const fs::path& place) {
    struct stat sought {};
    if (stat(directory.c_str(), &sought) != 0) return false;
    constexpr int flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    int descriptor = open(place.c_str(), flags);
    struct stat below {};
    bool isFound = false;
    while (descriptor != -1 && !isFound) {
        struct stat here {};
        fstat(descriptor, &here);
        isFound = isSame(here, sought);
        const bool isRoot = isSame(here, below);
        below = here;
        const int above = isRoot ? -1 : openat(descriptor, "..", flags);
        close(descriptor);
        descriptor = above;
    }
    if (descriptor != -1) close(descriptor);
    return isFound;
}

/// Whether the file is really in the directory or below it, with links resolved.
bool isIn(const std::string& directory, const std::string& file) {
    std::error_code error;
    const fs::path real = fs::canonical(file, error);
    return !error && isAtOrAbove(directory, real.parent_path());
}

std::string quoted(const std::string& name) {
    return "'" + name + "'";
}

std::string withoutFormat(const std::string& name) {
    const std::string_view rest = withoutFormatEnding(name);
    return rest.size() < name.size() ? std::string(rest) : name + "-unpacked";
}

bool isSameFile(const std::string& left, const std::string& right) {
    struct stat one {};
    struct stat other {};
    return stat(left.c_str(), &one) == 0 && stat(right.c_str(), &other) == 0 && isSame(one, other);
}

std::string unpackingMistake(const std::string& archive, const std::string& destination) {
    std::string problem;
    fs::path own = fs::path(destination) / withoutFormat(fs::path(archive).filename());
    if (isSameFile(archive, destination)) {
        problem = " would replace the archive itself";
        own = withoutFormat(archive);
    } else if (isAtOrAbove(destination, ".")) {
        problem = " would replace the working directory with all it holds";
    } else if (isIn(destination, archive)) {
        problem = " would replace the directory that the archive itself is in";
    } else {
        return "";
    }
    return "unpacking to " + quoted(destination) + problem +
           ": name a directory of its own, such as " + quoted(own.native());
}

std::string makingMistake(const std::string& source, const std::string& archive) {
    struct stat from {};
    struct stat to {};
    if (stat(source.c_str(), &from) != 0 || stat(archive.c_str(), &to) != 0) return "";

    const fs::path name = fs::path(archive).filename();
    if (S_ISREG(from.st_mode) && isSame(from, to)) {
        const fs::path other = fs::path(archive).parent_path() / ("new-" + name.native());
        return "the archive " + quoted(archive) +
               " would be made of itself: name another, such as " + quoted(other.native());
    }
    if (S_ISDIR(from.st_mode) && S_ISREG(to.st_mode) && isIn(source, archive)) {
        const fs::path outside = (fs::path(source) / ".." / name).lexically_normal();
        return "the archive " + quoted(archive) + " is in its source " + quoted(source) +
               ": remove it first, or name one outside, such as " + quoted(outside.native());
    }
    return "";
}

}  // namespace

std::optional<std::string> mistakeIn(const Arguments& arguments) {
    const bool isUnpacking = arguments.verb == Verb::unpack;
    std::error_code error;
    const bool replaces =
        arguments.overwrite || (isUnpacking && fs::is_empty(arguments.tree, error) && !error);
    if (!replaces) return std::nullopt;
    std::string mistake = isUnpacking ? unpackingMistake(arguments.archive, arguments.tree)
                                      : makingMistake(arguments.tree, arguments.archive);
    if (mistake.empty()) return std::nullopt;
    return mistake;
}

}  // namespace vesk::commandline
