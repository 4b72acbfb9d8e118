// SPDX-License-Identifier: MIT
// Why an archive was not made. The messages are in the order of the module's checks.
#include "explanation/make_explanation.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <string_view>

#include "explanation/path_state.h"
#include "explanation/source_walk.h"
#include "explanation/text.h"
#include "tar/ustar_header.h"

namespace vesk::explanation {

namespace {

using namespace vesk::io::archives;
using Lines = std::vector<std::string>;

constexpr const char* elsewhere = "fix that, or make the archive in another place";

Lines unless(const std::string& nothing, const std::string& advice) {
    if (nothing.empty()) return {};
    return {nothing, advice};
}

Lines explainNoArchiveName(const FailedCall& /*call*/) {
    return {"the word for ARCHIVE is empty: is a variable in it not set?"};
}

Lines explainNoSourceName(const FailedCall& /*call*/) {
    return {"the word for SOURCE is empty: is a variable in it not set?"};
}

Lines explainInspection(const FailedCall& call) {
    const Lookup found = lookUp(call.archive);
    if (found.error == 0 || found.error == ENOENT || found.error == ENOTDIR) return {};
    return {found.words, elsewhere};
}

/// Suggests a name for the archive inside the directory that was given as its path.
std::string nameIn(const std::string& directory, const FailedCall& call) {
    const std::string source = std::filesystem::path(call.tree).filename();
    return shellWord((std::filesystem::path(directory) / source).native() +
                     (call.isGzip ? ".tgz" : ".tar"));
}

Lines explainExistence(const FailedCall& call) {
    const std::string kind = kindAt(call.archive);
    if (kind.empty()) return {};
    const std::string finding = inQuotes(call.archive) + ": " + kind;
    if (kind == "a directory") return {finding, "name a file in it: " + nameIn(call.archive, call)};
    if (kind == "a socket" || !call.mayOverwrite) return {finding, "name another archive"};
    const bool isReplaced = kind.starts_with("a regular");
    return {finding, isReplaced ? "to replace it: add --overwrite"
                                : "to write to it all the same: add --overwrite"};
}

Lines explainParent(const FailedCall& call) {
    return unless(directoryTrouble(directoryOf(call.archive)), elsewhere);
}

Lines explainMissingSource(const FailedCall& call) {
    const Lookup found = lookUp(call.tree);
    if (found.error == 0) return {};
    return {found.words, "to see what is there: ls -l " + shellWord(found.directory)};
}

Lines explainKind(const FailedCall& call) {
    const std::string kind = kindAt(call.tree);
    const bool isRight = kind.empty() || kind == "a directory" || kind.starts_with("a regular");
    if (isRight) return {};
    return {inQuotes(call.tree) + ": " + kind, "name a file, or a directory of files"};
}

Lines explainWalk(const FailedCall& call) {
    const StoppedWalk stopped = walkSource(call.tree).stopped;
    if (stopped.path.empty()) return {};
    const Lookup found = lookUp(stopped.path);
    if (stopped.error == EMFILE) return {};
    // With the slash, find follows a source that is a link.
    const std::string source = call.tree + (std::filesystem::is_symlink(call.tree) ? "/" : "");
    if (found.error != 0 && found.error != EACCES)
        return {found.words, "remove it or fix it; to list all such links: find " +
                                 shellWord(source) + " -xtype l"};
    const std::string words = found.error != 0 ? found.words
                                               : inQuotes(stopped.path) + ": " +
                                                     std::generic_category().message(stopped.error);
    return {words, stopped.error == EACCES ? permitting(stopped.path)
                                           : "name a directory further down as the source"};
}

/// For a file that cannot be stored as it is.
Lines explainKernels(const std::string& path) {
    if (path.empty() || !isKernels(path)) return {};
    return {inQuotes(path) + ": a file of the kernel's, whose size is not known",
            "leave it out, or replace it by a copy that cat makes"};
}

Lines explainReading(const FailedCall& call) {
    const std::string path = call.message.substr(std::string_view("Cannot read file: ").size());
    const std::string trouble = accessTrouble(path, false);
    if (trouble.empty()) return explainKernels(path);
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 && errno == ENOENT)
        return {trouble, "it is gone by now: try again when nobody writes there"};
    return {trouble, permitting(path)};
}

Lines explainSize(const FailedCall& call) {
    const SourceWalk walk = walkSource(call.tree);
    const SourceFile& file = walk.tooLarge;
    if (file.path.empty()) return explainKernels(walk.kernels.path);
    return {inQuotes(file.path) + ": " + bytes(file.size) + ", and 4294967295 are the most",
            "move it out of the source, or put its parts in its place: split -b 2G"};
}

/// Says where the name would be split, and which part is too long.
std::string splitOf(const std::string& name) {
    const std::size_t slash = name.rfind('/', TarPrefix::width);
    if (slash == std::string::npos || slash == 0) {
        const std::size_t first = std::min(name.find('/', 1), name.size());
        return first == name.size()
                   ? "it has no '/' to be split at: shorten it to 100 bytes"
                   : "its first directory's name has " + bytes(first) + ": shorten it to 155";
    }
    const std::size_t rest = name.size() - slash - 1;
    return "the part behind its first " + bytes(slash) + " has " + std::to_string(rest) +
           ": shorten that to 100";
}

Lines explainName(const FailedCall& call) {
    const SourceWalk walk = walkSource(call.tree);
    const std::string& name = walk.tooLong.name;
    if (walk.tooLongCount == 0) return {};
    const std::uint64_t others = walk.tooLongCount - 1;
    const std::string more =
        others == 0 ? "" : "; " + std::to_string(others) + " more are too long, too";
    return {inQuotes(name) + ": a name of " + bytes(name.size()) + more, splitOf(name)};
}

bool isForeignLink(const std::string& path) {
    struct stat status {};
    struct stat above {};
    return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode) &&
           stat(directoryOf(path).c_str(), &above) == 0 && (above.st_mode & S_ISVTX) != 0 &&
           status.st_uid != geteuid() && status.st_uid != above.st_uid;
}

/// The archive's path is a link: says why no file can be created where it leads.
std::string linkTrouble(const std::string& link) {
    std::error_code error;
    const std::filesystem::path target = std::filesystem::read_symlink(link, error);
    if (error) return "";
    const std::string end = std::filesystem::path(link).parent_path() / target;
    const std::string trouble = directoryTrouble(directoryOf(end));
    return trouble.empty() ? lookUp(link).words : trouble;
}

bool isOnReadOnlySystem(const std::string& path) {
    return faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0 && errno == EROFS;
}

Lines explainCreation(const FailedCall& call) {
    if (isForeignLink(call.archive))
        return {inQuotes(call.archive) + ": another user's link, which is not followed here",
                elsewhere};
    const std::string kind = kindAt(call.archive);
    if (kind == "a directory")
        return {inQuotes(call.archive) + ": " + kind,
                "name a file in it: " + nameIn(call.archive, call)};
    if (!kind.empty()) {
        const std::string trouble = accessTrouble(call.archive, true);
        if (!trouble.empty())
            return {trouble,
                    isOnReadOnlySystem(call.archive)
                        ? elsewhere
                        : "if it is yours, permit it: chmod u+w " + shellWord(call.archive)};
    } else if (const std::string trouble = linkTrouble(call.archive); !trouble.empty()) {
        return {trouble, elsewhere};
    }
    return unless(makingTrouble(directoryOf(call.archive)), elsewhere);
}

/// The size of the gzip member for a TAR stream of that many bytes.
std::uint64_t memberSize(std::uint64_t streamSize) {
    constexpr std::uint64_t block = 65535;
    return streamSize + 5 * std::max<std::uint64_t>(1, (streamSize + block - 1) / block) + 18;
}

Lines explainWriting(const FailedCall& call) {
    const std::uint64_t stream = walkSource(call.tree).archiveSize;
    const std::uint64_t needed = call.isGzip ? memberSize(stream) : stream;
    if (const auto limit = fileSizeLimit(); limit && *limit < needed)
        return {inQuotes(call.archive) + ": " + bytes(needed) + ", and a file may have " +
                    std::to_string(*limit) + " here",
                "to lift that limit: ulimit -f unlimited"};
    return unless(roomTrouble(call.archive, needed),
                  "free some, or make the archive on another file system");
}

struct Explanation {
    std::string_view message;
    Lines (*explain)(const FailedCall&);
};

constexpr auto explanations = std::to_array<Explanation>({
    {"Archive path is required", explainNoArchiveName},
    {"Cannot inspect archive destination", explainInspection},
    {"Archive already exists", explainExistence},
    {"Cannot create archive parent directory", explainParent},
    {"Source path is required", explainNoSourceName},
    {"Archive source does not exist", explainMissingSource},
    {"Archive source must be a file or directory", explainKind},
    {"Cannot enumerate archive source", explainWalk},
    {"ZIP entry is too large for ZIP32", explainSize},
    {"TAR entry name is too long", explainName},
    {"Cannot create archive", explainCreation},
    {"Cannot finalize archive", explainWriting},
});

}  // namespace

std::vector<std::string> explainMaking(const FailedCall& call) {
    if (call.message.starts_with("Cannot read file: ")) return explainReading(call);
    const auto* const known =
        std::find_if(explanations.begin(), explanations.end(),
                     [&](const Explanation& one) { return one.message == call.message; });
    return known != explanations.end() ? known->explain(call) : Lines{};
}

}  // namespace vesk::explanation
