// SPDX-License-Identifier: MIT
// Why the stand-in host could not put an unpacked tree in its place.
#include "explanation/staging_explanation.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>

#include "explanation/path_state.h"
#include "explanation/text.h"

namespace vesk::explanation {

namespace {

using Lines = std::vector<std::string>;

constexpr const char* elsewhere = "fix that, or unpack to another place";

bool isMountPoint(const std::string& path) {
    struct statx status {};
    return statx(AT_FDCWD, path.c_str(), 0, STATX_TYPE, &status) == 0 &&
           (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

/// Whether it is another user's link or directory, in a directory where everybody may create files.
bool isForeign(const std::string& path) {
    struct stat status {};
    struct stat above {};
    return lstat(path.c_str(), &status) == 0 && stat(directoryOf(path).c_str(), &above) == 0 &&
           (above.st_mode & S_ISVTX) != 0 && status.st_uid != geteuid();
}

bool isLink(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

Lines unless(const std::string& nothing, const std::string& advice) {
    if (nothing.empty()) return {};
    return {nothing, advice};
}

Lines explainInspection(const FailedCall& call) {
    const Lookup found = lookUp(call.tree);
    if (found.error == 0 || found.error == ENOENT) return {};
    return {found.words, elsewhere};
}

Lines explainExistence(const FailedCall& call) {
    const std::string kind = kindAt(call.tree);
    if (kind.empty() && isLink(call.tree))
        return {lookUp(call.tree).words, "remove it, or name another destination"};
    if (kind.empty()) return {};
    const bool isDirectory = kind == "a directory";
    const bool isReplaceable = call.mayOverwrite && !isMountPoint(call.tree) &&
                               (isDirectory || kind.starts_with("a regular"));
    const std::string what = isLink(call.tree) ? "a link to " + kind : kind;
    if (!isReplaceable) return {inQuotes(call.tree) + ": " + what, "name another destination"};
    return {inQuotes(call.tree) + ": " + what,
            isDirectory ? "to replace it with all that it holds: add --overwrite"
                        : "to replace it: add --overwrite"};
}

Lines explainIrreplaceable(const FailedCall& call) {
    std::string what = kindAt(call.tree);
    if (isLink(call.tree)) {
        if (lookUp(call.tree).error != 0)
            return {lookUp(call.tree).words, "remove it, or name another destination"};
        what = isForeign(call.tree) ? "another user's link" : "a link to what cannot be replaced";
    } else if (isMountPoint(call.tree)) {
        what = "a file system is mounted there";
    } else if (what == "a directory" || what.empty() || what.starts_with("a regular")) {
        return {};
    }
    return {inQuotes(call.tree) + ": " + what, "name another destination"};
}

Lines explainStagingDirectory(const FailedCall& call) {
    return unless(makingTrouble(directoryOf(call.tree)), elsewhere);
}

Lines explainParent(const FailedCall& call) {
    return unless(directoryTrouble(directoryOf(call.tree)), elsewhere);
}

Lines explainLayer(const FailedCall& call) {
    struct statfs system {};
    if (statfs(call.tree.c_str(), &system) != 0 || system.f_type != OVERLAYFS_SUPER_MAGIC)
        return {};
    return {inQuotes(call.tree) + ": from a lower layer of an overlay file system",
            "name another destination, or remove it first: rm -r " + shellWord(call.tree)};
}

Lines explainMove(const FailedCall& call) {
    if (!isForeign(call.tree)) return {};
    return {inQuotes(call.tree) + ": another user's, in a directory where only he may move it",
            "name another destination"};
}

}  // namespace

std::vector<std::string> explainStaging(const FailedCall& call) {
    if (call.message == "Cannot inspect destination") return explainInspection(call);
    if (call.message == "Cannot create destination parent directory") return explainParent(call);
    if (call.message == "Destination already exists") return explainExistence(call);
    if (call.message == "Destination cannot be replaced") return explainIrreplaceable(call);
    if (call.message == "Cannot create staging directory") return explainStagingDirectory(call);
    if (call.message == "Destination cannot be moved by its file system") return explainLayer(call);
    if (call.message == "Cannot move extracted files to destination") return explainMove(call);
    return {};
}

}  // namespace vesk::explanation
