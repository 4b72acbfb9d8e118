// SPDX-License-Identifier: MIT
// Staged extraction: a directory beside the destination, which only its owner may enter, holds the
// tree that becomes the destination on commit. Parent, directory and tree are held open, so changes
// to their paths cannot redirect anything. Such changes are noticed at the commit.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "module/host/host_runtime.h"
#include "standinhost/call_observer.h"
#include "standinhost/destination.h"
#include "standinhost/extracted_names.h"
#include "standinhost/staging.h"
#include "standinhost/staging_name.h"
#include "standinhost/standin_host.h"
#include "standinhost/tree_deletion.h"
#include "standinhost/tree_placement.h"

namespace {

namespace fs = std::filesystem;
using namespace vesk::standin;

constexpr const char* treeName = "tree";
/// The tree's name during the commit: its earlier path, which others may know, leads nowhere then.
constexpr const char* movedName = "moved";
constexpr const char* cannotMove = "Cannot move extracted files to destination";
constexpr const char* cannotFlush = "Cannot flush extracted files";

/// Attempts before giving up on finding an unused name.
constexpr int namingAttempts = 100;

struct Staging {
    pid_t process = getpid();  ///< only this process removes it, not a child forked meanwhile
    bool overwrite = false;
    bool sync = false;
    MadeParents parents;
    Destination destination;
    std::string name;          ///< of the staging directory, beside the destination
    std::string replacedName;  ///< of the old tree while it waits beside the destination
    FileDescriptor directory;
    FileDescriptor tree;
    fs::path path;  ///< the path that the module was given
    ExtractedNames names;
    /// What is reported if it cannot be deleted. Built in advance, since memory may run out later.
    Leftover directoryLeft;
    Leftover asideLeft;
    Leftover oldTreeLeft;

    Entry directoryEntry() const { return {destination.parent.number(), name.c_str()}; }
    Entry replacedEntry() const { return {destination.parent.number(), replacedName.c_str()}; }
    Entry treeEntry() const { return {directory.number(), treeName}; }
    Entry movedEntry() const { return {directory.number(), movedName}; }
};

// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables): one for each thread
thread_local std::unique_ptr<Staging> openStaging;
thread_local std::optional<Leftover> leftover;
thread_local bool isSyncWanted = false;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

void chooseName(Staging& staging) {
    const Destination& destination = staging.destination;
    staging.name = stagingName(destination.name, staging.overwrite);
    staging.replacedName = replacedTreeName(destination.name, staging.name);
    staging.directoryLeft = {destination.parentPath / staging.name};
    staging.asideLeft = {destination.parentPath / staging.replacedName};
    staging.oldTreeLeft = {staging.directoryLeft.path / movedName, true};
}

bool makeDirectory(Staging& staging) {
    for (int attempt = 0; attempt < namingAttempts; ++attempt) {
        chooseName(staging);
        const Entry entry = staging.directoryEntry();
        if (mkdirat(entry.directory, entry.name, S_IRWXU) == 0) return true;
        if (errno != EEXIST) break;
    }
    staging.name.clear();
    return false;
}

/// Opens the staging directory. If a umask has taken permissions from its owner, restores them.
FileDescriptor openOwnersDirectory(Entry entry) {
    FileDescriptor directory = openDirectory(entry);
    if (directory || errno != EACCES) return directory;
    // Opening shows whether that has helped.
    [[maybe_unused]] const int result =
        fchmodat(entry.directory, entry.name, S_IRWXU, AT_SYMLINK_NOFOLLOW);
    return openDirectory(entry);
}

/// Gives the owner of the open directory all permissions, and nobody else any.
void closeToOthers(int directory) {
    struct stat status {};
    const bool isAsMade = fstat(directory, &status) == 0 && (status.st_mode & 0777) == S_IRWXU;
    if (!isAsMade) fchmod(directory, S_IRWXU);
}

/// Tells whether the open directory belongs to this user. Where others may write to its parent, one
/// of them may have put another directory in its place. A file system may know this user by another
/// number, so the owner is compared with that of a new file, which only this process can have made.
bool isOwn(int directory) {
    constexpr const char* name = "owner";
    const FileDescriptor file(
        openat(directory, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file) return false;
    unlinkat(directory, name, 0);
    struct stat outer {};
    struct stat inner {};
    return fstat(directory, &outer) == 0 && fstat(file.number(), &inner) == 0 &&
           outer.st_uid == inner.st_uid;
}

/// Makes and opens the staging directory. If it is not empty, somebody has put another directory in
/// its place; that one is left alone.
bool openStagingDirectory(Staging& staging) {
    if (!makeDirectory(staging)) return false;
    FileDescriptor directory = openOwnersDirectory(staging.directoryEntry());
    if (!directory) return false;
    if (NameReader(directory.number()).next() != nullptr) {
        staging.name.clear();
        return false;
    }
    staging.directory = std::move(directory);
    closeToOthers(staging.directory.number());
    return isOwn(staging.directory.number());
}

/// Makes and opens the staging directory and the tree in it. The tree is made by a plain mkdir, so
/// it has the permissions of any new directory there.
bool makeTree(Staging& staging) {
    if (!openStagingDirectory(staging)) return false;
    const Entry tree = staging.treeEntry();
    if (mkdirat(tree.directory, tree.name, 0777) != 0) return false;
    staging.tree = FileDescriptor(
        openat(tree.directory, tree.name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return static_cast<bool>(staging.tree);
}

bool leadsTo(const fs::path& path, int tree) {
    return isOpenAs({AT_FDCWD, path.c_str()}, tree);
}

/// Returns a path to the tree. It goes through the open directory, so it leads to the tree whatever
/// happens to the directories above. Where the system has no such paths, it is a path without links
/// and dots, so that its normal form leads to the tree too. Empty when neither path leads there.
fs::path pathToTree(const Staging& staging) {
    // Not "self": that is a link, which the system would follow once more for every entry.
    fs::path path = "/proc/" + std::to_string(staging.process) + "/fd/" +
                    std::to_string(staging.directory.number()) + "/" + treeName;
    if (leadsTo(path, staging.tree.number())) return path;
    path = (staging.directoryLeft.path / treeName).lexically_normal();
    return leadsTo(path, staging.tree.number()) ? path : fs::path();
}

/// Removes the open directory, which is empty, from the directory that contains it now.
bool removeWhereItIs(int directory) {
    std::array<char, 32> link{};
    std::array<char, PATH_MAX> path{};
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", directory);
    if (readlink(link.data(), path.data(), path.size() - 1) <= 0) return false;
    // Only the last component is used: the rest of the path may already lead elsewhere.
    const char* const slash = std::strrchr(path.data(), '/');
    const FileDescriptor parent(openat(directory, "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const Entry entry{parent.number(), slash != nullptr ? slash + 1 : path.data()};
    return isOpenAs(entry, directory) && unlinkat(entry.directory, entry.name, AT_REMOVEDIR) == 0;
}

/// Removes the emptied staging directory under its current name. True when it is gone.
bool removeEmptied(const Staging& staging) {
    const int directory = staging.directory.number();
    const Entry entry = staging.directoryEntry();
    const bool isThere = !staging.directory || isOpenAs(entry, directory);
    if (isThere && unlinkat(entry.directory, entry.name, AT_REMOVEDIR) == 0) return true;
    if (!staging.directory) return errno == ENOENT;
    // It may have been moved or removed, even after it was seen there.
    struct stat status {};
    const bool isGone = fstat(directory, &status) == 0 && status.st_nlink == 0;
    return isGone || removeWhereItIs(directory);
}

/// Deletes the staging directory with all its content. Allocates nothing.
void removeDirectory(Staging& staging) {
    if (staging.name.empty()) return;
    const Rest rest =
        staging.directory ? deleteContents(staging.directory.number()) : Rest::nothing;
    const bool isGone = rest == Rest::nothing && removeEmptied(staging);
    if (isGone || leftover) return;
    leftover = std::move(staging.directoryLeft);
    leftover->holdsMount = rest == Rest::mountedPlace;
}

/// Prepares staging. Returns the message of a failure, or null on success.
const char* prepare(const fs::path& path, Staging& staging) {
    if (const char* message = findDestination(path, &staging.parents, staging.destination))
        return message;
    if (const char* message = refusalOf(staging.destination, staging.overwrite)) return message;
    if (makeTree(staging)) staging.path = pathToTree(staging);
    return staging.path.empty() ? "Cannot create staging directory" : nullptr;
}

/// Tells whether the destination is still in the directory for which staging was prepared, with the
/// staging directory beside it.
bool isInPlace(const Staging& staging, const fs::path& path) {
    Destination destination;
    return findDestination(path, nullptr, destination) == nullptr &&
           destination.name == staging.destination.name &&
           isOpenAs({destination.parent.number(), "."}, staging.destination.parent.number()) &&
           isOpenAs(staging.directoryEntry(), staging.directory.number());
}

/// Renames the tree. Tells whether it is the one that was made and holds at least as many entries
/// as were extracted.
bool completeTree(Staging& staging) {
    const Entry tree = staging.treeEntry();
    const Entry complete = staging.movedEntry();
    return renameat(tree.directory, tree.name, complete.directory, complete.name) == 0 &&
           isOpenAs(complete, staging.tree.number()) && staging.names.areIn(staging.tree.number());
}

Placement place(const Staging& staging) {
    const Entry tree = staging.movedEntry();
    const Entry target = staging.destination.entry();
    return staging.overwrite ? replaceTree(tree, target, staging.replacedEntry())
                             : placeNewTree(tree, target);
}

/// Returns the message for a placement, or null for one that is done.
const char* messageOf(Placement placement) {
    switch (placement) {
        case Placement::done:
            return nullptr;
        case Placement::targetExists:
            return "Destination already exists";
        case Placement::targetIrreplaceable:
            return "Destination cannot be replaced";
        case Placement::targetUnmovable:
            return "Destination cannot be moved by its file system";
        case Placement::failed:
            break;
    }
    return cannotMove;
}

/// Notes the old tree if it is still beside the destination because it could not be moved from
/// there.
void tellWhatIsAside(Staging& staging) {
    if (kindOf(staging.replacedEntry()) == EntryKind::nothing) return;
    leftover = std::move(staging.asideLeft);
    leftover->isOldTree = kindOf(staging.destination.entry()) == EntryKind::nothing;
}

/// Deletes the tree if it is still at the destination, or with `keepsTop` all that is in it.
void deletePlaced(const Staging& staging, bool keepsTop) {
    const Entry target = staging.destination.entry();
    const int tree = staging.tree.number();
    const FileDescriptor directory = openDirectory(target);
    if (!directory || !isOpenAs({directory.number(), "."}, tree)) return;
    deleteContents(directory.number());
    if (!keepsTop && isOpenAs(target, tree)) unlinkat(target.directory, target.name, AT_REMOVEDIR);
}

/// Puts back what was at the destination. If that fails, it is kept in the staging directory. A
/// tree that replaced nothing is deleted if the staging directory is gone, to which it would go
/// back.
void takeBack(Staging& staging, bool wasNothing, bool wasEmptyDirectory) {
    const bool isBack =
        takeBackTree(staging.movedEntry(), staging.destination.entry(), staging.replacedEntry(),
                     staging.tree.number(), wasEmptyDirectory);
    if (!isBack) {
        leftover = std::move(staging.oldTreeLeft);
        staging.name.clear();
    } else if (wasNothing || wasEmptyDirectory) {
        deletePlaced(staging, wasEmptyDirectory);
    }
}

/// Commits staging. Returns the message of a failure, or null on success.
const char* commit(Staging& staging, const fs::path& path) {
    if (!isInPlace(staging, path) || !completeTree(staging)) return cannotMove;
    // Opened only if needed: descriptors may be few, and counting again what was extracted takes as
    // many as the first count.
    FileDescriptor parent;
    if (staging.sync) parent = openDirectory({staging.destination.parent.number(), "."});
    if (staging.sync && (!parent || syncfs(staging.directory.number()) != 0)) return cannotFlush;

    const Entry target = staging.destination.entry();
    const int tree = staging.tree.number();
    const bool isOnNothing = kindOf(target) == EntryKind::nothing;
    const bool isOnEmptyDirectory = isEmptyDirectory(target);
    const Placement placed = place(staging);
    tellWhatIsAside(staging);
    if (placed != Placement::done) return messageOf(placed);

    // A process that was removing files when the tree was moved may go on removing them. But a tree
    // that is no longer at the destination was replaced by another run, which now deletes it: this
    // commit did succeed.
    const bool isWhole = staging.names.areStillIn(tree) || !isOpenAs(target, tree);
    const bool isFlushed = !staging.sync || fsync(parent.number()) == 0;
    if (isWhole && isFlushed) return nullptr;
    if (isOpenAs(target, tree)) takeBack(staging, isOnNothing, isOnEmptyDirectory);
    return isWhole ? cannotFlush : cannotMove;
}

/// Stores `message` as the error unless it is null. True when it is null.
bool succeeded(const char* message, std::string& error) {
    if (message != nullptr) error = message;
    return message == nullptr;
}

}  // namespace

bool vesk::runtime::archives::prepareExtractionStaging(const fs::path& destination, bool overwrite,
                                                       fs::path& staging, std::string& error) {
    standin::abandonStaging();
    leftover.reset();
    // Stored before anything is made, so that a lack of memory cannot lose track of it.
    openStaging = std::make_unique<Staging>();
    openStaging->overwrite = overwrite;
    openStaging->sync = isSyncWanted;
    const bool prepared = succeeded(prepare(destination, *openStaging), error);
    if (prepared) {
        staging = openStaging->path;
    } else {
        standin::abandonStaging();
    }
    return prepared;
}

bool vesk::runtime::archives::commitExtractionStaging(const fs::path& staging,
                                                      const fs::path& destination,
                                                      std::string& error) {
    standin::announceCall(standin::HostCall::commitExtractionStaging);
    const bool isOpen = openStaging && openStaging->path.native() == staging.native();
    const bool committed =
        succeeded(isOpen ? commit(*openStaging, destination) : cannotMove, error);
    if (committed) {
        removeDirectory(*openStaging);
        openStaging.reset();
    }
    return committed;
}

void vesk::runtime::archives::removeExtractionTree(const fs::path& staging) {
    if (openStaging && openStaging->path.native() == staging.native()) standin::abandonStaging();
}

void vesk::standin::abandonStaging() {
    if (!openStaging) return;
    if (openStaging->process != getpid()) return openStaging.reset();
    removeDirectory(*openStaging);
    // Removing the parents takes a descriptor, so those of the staging are closed first.
    MadeParents parents = std::move(openStaging->parents);
    openStaging.reset();
    parents.remove();
}

void vesk::standin::noteSync(bool wanted) {
    isSyncWanted = wanted;
}

void vesk::standin::notePath(const char* text) {
    if (openStaging) openStaging->names.note(text);
}

std::optional<Leftover> vesk::standin::takeLeftover() {
    return std::exchange(leftover, std::nullopt);
}
