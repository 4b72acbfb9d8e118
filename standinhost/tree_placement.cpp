// SPDX-License-Identifier: MIT
// Moving a finished tree to its final path, by the renames of which each is one step.
#include "standinhost/tree_placement.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <new>
#include <system_error>

namespace vesk::standin {
namespace {

namespace fs = std::filesystem;

/// How often a target that comes and goes meanwhile is chased.
constexpr int replaceAttempts = 8;

enum class Renamed { done, targetExists, nothingThere, unsupported, failed };

Renamed renameWithFlags(const fs::path& from, const fs::path& to, unsigned flags) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) == 0) return Renamed::done;
    switch (errno) {
        case EEXIST:
            return Renamed::targetExists;
        case ENOENT:
            return Renamed::nothingThere;
        case EINVAL:
        case ENOSYS:
        case EOPNOTSUPP:
            return Renamed::unsupported;
        default:
            return Renamed::failed;
    }
}

bool renamePlainly(const fs::path& from, const fs::path& to) {
    return std::rename(from.c_str(), to.c_str()) == 0;
}

bool isThere(const fs::path& path) {
    std::error_code ignored;
    return fs::exists(fs::symlink_status(path, ignored));
}

/// Deletes what can be deleted. Too little memory stops it, too, but fails nobody: by now the new
/// tree is in its place.
void deleteTree(const fs::path& tree) {
    try {
        std::error_code ignored;
        fs::remove_all(tree, ignored);
    } catch (const std::bad_alloc&) {
    }
}

/// The way without RENAME_NOREPLACE. A directory is renamed onto nothing but an empty directory, so
/// that what appears between the look and the rename is lost only if there is nothing to lose.
Placement placeNewTreePlainly(const fs::path& staging, const fs::path& target) {
    if (isThere(target)) return Placement::targetExists;
    if (renamePlainly(staging, target)) return Placement::done;
    return isThere(target) ? Placement::targetExists : Placement::failed;
}

/// The way without RENAME_EXCHANGE.
Placement replaceTreePlainly(const fs::path& staging, const fs::path& target,
                             const fs::path& aside) {
    if (isThere(aside) || !renamePlainly(target, aside)) return Placement::failed;
    if (renamePlainly(staging, target)) {
        deleteTree(aside);
        return Placement::done;
    }
    renamePlainly(aside, target);
    return Placement::failed;
}

/// `targetExists` when something has appeared there again after it had gone.
Placement exchangeTrees(const fs::path& staging, const fs::path& target, const fs::path& aside) {
    switch (renameWithFlags(staging, target, RENAME_EXCHANGE)) {
        case Renamed::done:
            deleteTree(staging);
            return Placement::done;
        case Renamed::nothingThere:
            return placeNewTree(staging, target);
        case Renamed::unsupported:
            return replaceTreePlainly(staging, target, aside);
        default:
            return Placement::failed;
    }
}

}  // namespace

Placement placeNewTree(const fs::path& staging, const fs::path& target) {
    switch (renameWithFlags(staging, target, RENAME_NOREPLACE)) {
        case Renamed::done:
            return Placement::done;
        case Renamed::targetExists:
            return Placement::targetExists;
        case Renamed::unsupported:
            return placeNewTreePlainly(staging, target);
        default:
            return Placement::failed;
    }
}

Placement replaceTree(const fs::path& staging, const fs::path& target, const fs::path& aside) {
    for (int attempt = 0; attempt < replaceAttempts; ++attempt) {
        const Placement placed =
            isThere(target) ? exchangeTrees(staging, target, aside) : placeNewTree(staging, target);
        if (placed != Placement::targetExists) return placed;
    }
    return Placement::failed;
}

}  // namespace vesk::standin
