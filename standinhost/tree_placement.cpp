// SPDX-License-Identifier: MIT
// Moving a finished tree to its final path, using atomic renames.
#include "standinhost/tree_placement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

namespace vesk::standin {

namespace {

/// Attempts before giving up on a target that keeps changing.
constexpr int replaceAttempts = 32;

bool statusOf(Entry entry, struct stat& status) {
    return fstatat(entry.directory, entry.name, &status, AT_SYMLINK_NOFOLLOW) == 0;
}

bool isThere(Entry entry) {
    return kindOf(entry) != EntryKind::nothing;
}

/// Gives the owner of a directory write permission, which moving it to another parent requires.
class WritePermission {
public:
    explicit WritePermission(Entry entry) {
        struct stat status {};
        isGiven_ = statusOf(entry, status) && S_ISDIR(status.st_mode) &&
                   (status.st_mode & S_IWUSR) == 0 && change(entry, status.st_mode | S_IWUSR);
        mode_ = status.st_mode;
    }

    /// Takes the permission away again; `entry` is where the directory is now.
    void takeAway(Entry entry) const {
        if (isGiven_) change(entry, mode_);
    }

private:
    static bool change(Entry entry, mode_t mode) {
        return fchmodat(entry.directory, entry.name, mode & 07777, AT_SYMLINK_NOFOLLOW) == 0;
    }

    bool isGiven_ = false;
    mode_t mode_ = 0;
};

/// Renames. Returns 0 or the error number.
int rename(Entry from, Entry to, unsigned flags) {
    const int result = flags == 0
                           ? renameat(from.directory, from.name, to.directory, to.name)
                           : renameat2(from.directory, from.name, to.directory, to.name, flags);
    return result == 0 ? 0 : errno;
}

/// Renames even a directory that its owner may not write to. `flags` is 0 or RENAME_EXCHANGE.
/// Returns 0 or the error number.
int move(Entry from, Entry to, unsigned flags) {
    const int error = rename(from, to, flags);
    if (error != EACCES) return error;

    const WritePermission ofFrom(from);
    const WritePermission ofTo(to);
    const int secondError = rename(from, to, flags);
    const bool isMoved = secondError == 0;
    ofFrom.takeAway(isMoved ? to : from);
    if (flags == RENAME_EXCHANGE || !isMoved) ofTo.takeAway(isMoved ? from : to);
    return secondError;
}

/// Gives the directory `taker` the permissions and the group of the directory `giver`, whose place
/// it takes, and its owner too if this is the superuser. True also when `giver` is no directory or
/// does not exist.
bool adoptPermissions(Entry taker, Entry giver) {
    struct stat old {};
    struct stat fresh {};
    if (!statusOf(giver, old)) return errno == ENOENT;
    if (!S_ISDIR(old.st_mode)) return true;
    if (!statusOf(taker, fresh)) return false;
    const bool isSuperuser = geteuid() == 0;
    const uid_t owner = isSuperuser ? old.st_uid : fresh.st_uid;
    // An ordinary user can set only groups to which he belongs, so failing to set one is no error.
    if ((fresh.st_uid != owner || fresh.st_gid != old.st_gid) &&
        fchownat(taker.directory, taker.name, owner, old.st_gid, AT_SYMLINK_NOFOLLOW) != 0 &&
        isSuperuser)
        return false;
    return fresh.st_mode == old.st_mode ||
           fchmodat(taker.directory, taker.name, old.st_mode & 07777, 0) == 0;
}

/// Returns the outcome when the old tree could not be moved.
Placement afterFailedMove(int error) {
    if (error == ENOENT) return Placement::targetExists;
    return error == EXDEV ? Placement::targetUnmovable : Placement::failed;
}

/// Moves what is at `aside`, which is no longer needed, into the directory that this process
/// deletes.
bool dispose(Entry aside, int directory, int attempt) {
    std::array<char, 16> number{};
    std::snprintf(number.data(), number.size(), "old%d", attempt);
    return move(aside, {directory, number.data()}, 0) == 0;
}

/// Replaces without RENAME_EXCHANGE. Returns `targetExists` when another attempt may succeed: the
/// target has vanished before the first step, or something has appeared there between the two. In
/// the second case the old tree is to be deleted, and the next attempt replaces what has appeared.
Placement replaceInTwoSteps(Entry tree, Entry target, Entry aside, int attempt) {
    if (isThere(aside)) return Placement::failed;
    if (const int error = move(target, aside, 0)) return afterFailedMove(error);

    const Placement placed = placeNewTree(tree, target);
    if (placed == Placement::done) {
        move(aside, tree, 0);
        return placed;
    }
    if (placed == Placement::targetExists && dispose(aside, tree.directory, attempt)) return placed;
    move(aside, target, 0);
    return Placement::failed;
}

bool isUnsupported(int error) {
    return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP;
}

Placement exchangeTrees(Entry tree, Entry target, Entry aside, int attempt) {
    if (!adoptPermissions(tree, target)) return Placement::failed;
    const int error = move(tree, target, RENAME_EXCHANGE);
    if (isUnsupported(error)) return replaceInTwoSteps(tree, target, aside, attempt);
    return error == 0 ? Placement::done : afterFailedMove(error);
}

/// Tries once. Returns `targetExists` when the target has appeared or vanished meanwhile: another
/// attempt may succeed.
Placement replaceOnce(Entry tree, Entry target, Entry aside, int attempt) {
    switch (kindOf(target)) {
        case EntryKind::nothing:
            return placeNewTree(tree, target);
        case EntryKind::directory:
        case EntryKind::regularFile:
            return exchangeTrees(tree, target, aside, attempt);
        case EntryKind::mountPoint:
        case EntryKind::other:
            return Placement::targetIrreplaceable;
        case EntryKind::unknown:
            break;
    }
    return Placement::failed;
}

}  // namespace

Placement placeNewTree(Entry tree, Entry target) {
    if (!adoptPermissions(tree, target)) return Placement::failed;
    // The system allows renaming a directory only onto nothing and onto an empty directory.
    switch (move(tree, target, 0)) {
        case 0:
            return Placement::done;
        case EEXIST:
        case ENOTEMPTY:
        case ENOTDIR:
            return Placement::targetExists;
        default:
            return Placement::failed;
    }
}

Placement replaceTree(Entry tree, Entry target, Entry aside) {
    for (int attempt = 0; attempt < replaceAttempts; ++attempt) {
        const Placement placed = replaceOnce(tree, target, aside, attempt);
        if (placed != Placement::targetExists) return placed;
    }
    return Placement::failed;
}

namespace {

/// Makes an empty directory at `target`, with the permissions of the tree that had replaced one. It
/// is made beside the tree, where nobody else can put a link in its place, and then moved.
void makeEmptyDirectory(Entry tree, Entry target) {
    const Entry empty{tree.directory, "empty"};
    mkdirat(empty.directory, empty.name, S_IRWXU);
    adoptPermissions(empty, tree);
    move(empty, target, 0);
}

/// Exchanges the two; in two steps where the file system cannot do it in one.
bool exchange(Entry tree, Entry target, Entry aside) {
    const int error = move(tree, target, RENAME_EXCHANGE);
    if (isUnsupported(error)) return replaceInTwoSteps(tree, target, aside, 0) == Placement::done;
    return error == 0;
}

}  // namespace

bool takeBackTree(Entry tree, Entry target, Entry aside, int descriptor, bool wasEmptyDirectory) {
    const bool hasReplaced = isThere(tree);
    const bool isBack = hasReplaced ? exchange(tree, target, aside) : move(target, tree, 0) == 0;
    if (!isBack) return !hasReplaced;

    const bool isForeign = !isOpenAs(tree, descriptor);
    if (isForeign && hasReplaced) {
        exchange(tree, target, aside);
    } else if (isForeign) {
        move(tree, target, 0);
    } else if (wasEmptyDirectory && !hasReplaced) {
        makeEmptyDirectory(tree, target);
    }
    return true;
}

}  // namespace vesk::standin
