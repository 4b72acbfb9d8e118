// SPDX-License-Identifier: MIT
// Staged extraction: a directory beside the destination, open to its owner only, holds the tree
// that becomes the destination on commit. Parent, directory and tree are held open, so that what
// happens to their paths meanwhile bends nothing; it is noticed at the commit.
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
/// The tree's name from the commit on, by which nobody who was told its path meets it.
constexpr const char* movedName = "moved";
constexpr const char* cannotMove = "Cannot move extracted files to destination";
constexpr const char* cannotFlush = "Cannot flush extracted files";

/// Attempts to find a name that nothing has.
constexpr int namingAttempts = 100;

struct Staging {
    pid_t process = getpid();  ///< a child that was forked meanwhile has nothing to remove
    bool overwrite = false;
    bool sync = false;
    MadeParents parents;
    Destination destination;
    std::string name;          ///< of the staging directory, beside the destination
    std::string replacedName;  ///< of the old tree while it waits there
    FileDescriptor directory;
    FileDescriptor tree;
    fs::path path;  ///< what the module was given
    ExtractedNames names;
    /// What is told when it cannot be deleted. Made beforehand: later memory may have ended.
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

/// Opens the staging directory. A umask may have taken permissions from its owner.
FileDescriptor openOwnersDirectory(Entry entry) {
    FileDescriptor directory = openDirectory(entry);
    if (directory || errno != EACCES) return directory;
    // Whether that helped, opening tells.
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

/// Tells whether the open directory is this user's. Where others may write to its parent, one of
/// them may have put a directory of his own in the place of the one that was made. By which number
/// the file system calls this user, a file tells that nobody else can have made.
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

/// Makes and opens the staging directory. What holds something is not the one that was made: it was
/// put in its place, and is left alone.
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

/// Makes and opens the staging directory and, by a plain mkdir, the tree in it, which has the
/// permissions of any new directory there.
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

/// Returns a path to the tree: through the open directory, so that it leads nowhere else whatever
/// becomes of the paths above; where the system has no such paths, without links and dots, so that
/// its normal form means the same. Empty when there is neither.
fs::path pathToTree(const Staging& staging) {
    // By this process's number and not by "self", a link that every entry would follow.
    fs::path path = "/proc/" + std::to_string(staging.process) + "/fd/" +
                    std::to_string(staging.directory.number()) + "/" + treeName;
    if (leadsTo(path, staging.tree.number())) return path;
    path = (staging.directoryLeft.path / treeName).lexically_normal();
    return leadsTo(path, staging.tree.number()) ? path : fs::path();
}

/// Removes the open directory, which is empty, from the one that it is in by now.
bool removeWhereItIs(int directory) {
    std::array<char, 32> link{};
    std::array<char, PATH_MAX> path{};
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", directory);
    if (readlink(link.data(), path.data(), path.size() - 1) <= 0) return false;
    // Before the next call the rest of the path may lead elsewhere.
    const char* const slash = std::strrchr(path.data(), '/');
    const FileDescriptor parent(openat(directory, "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const Entry entry{parent.number(), slash != nullptr ? slash + 1 : path.data()};
    return isOpenAs(entry, directory) && unlinkat(entry.directory, entry.name, AT_REMOVEDIR) == 0;
}

/// Removes the emptied staging directory under the name that it has by now. True when it is gone.
bool removeEmptied(const Staging& staging) {
    const int directory = staging.directory.number();
    const Entry entry = staging.directoryEntry();
    if (!staging.directory || isOpenAs(entry, directory))
        return unlinkat(entry.directory, entry.name, AT_REMOVEDIR) == 0 || errno == ENOENT;
    struct stat status {};
    const bool isGone = fstat(directory, &status) == 0 && status.st_nlink == 0;
    return isGone || removeWhereItIs(directory);
}

/// Deletes the staging directory with all that it holds, which takes no memory.
void removeDirectory(Staging& staging) {
    if (staging.name.empty()) return;
    const Rest rest =
        staging.directory ? deleteContents(staging.directory.number()) : Rest::nothing;
    const bool isGone = rest == Rest::nothing && removeEmptied(staging);
    if (isGone || leftover) return;
    leftover = std::move(staging.directoryLeft);
    leftover->holdsMount = rest == Rest::mountedPlace;
}

/// Prepares staging. Returns the message of a failure, null when there is none.
const char* prepare(const fs::path& path, Staging& staging) {
    if (const char* message = findDestination(path, &staging.parents, staging.destination))
        return message;
    if (const char* message = refusalOf(staging.destination, staging.overwrite)) return message;
    if (makeTree(staging)) staging.path = pathToTree(staging);
    return staging.path.empty() ? "Cannot create staging directory" : nullptr;
}

/// Tells whether the destination is in the directory for which staging was prepared, and the
/// staging directory beside it.
bool isInPlace(const Staging& staging, const fs::path& path) {
    Destination destination;
    return findDestination(path, nullptr, destination) == nullptr &&
           destination.name == staging.destination.name &&
           isOpenAs({destination.parent.number(), "."}, staging.destination.parent.number()) &&
           isOpenAs(staging.directoryEntry(), staging.directory.number());
}

/// Renames the tree and tells whether it is the one that was made, with all that was extracted.
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

/// Returns the message for a placement, null for one that is done.
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

/// Notes the old tree where it could be moved no more, beside the destination.
void tellWhatIsAside(Staging& staging) {
    if (kindOf(staging.replacedEntry()) == EntryKind::nothing) return;
    leftover = std::move(staging.asideLeft);
    leftover->isOldTree = kindOf(staging.destination.entry()) == EntryKind::nothing;
}

/// Puts back what stood at the destination. Where that cannot be done, it is kept.
void takeBack(Staging& staging, bool wasEmptyDirectory) {
    const bool isBack =
        takeBackTree(staging.movedEntry(), staging.destination.entry(), staging.replacedEntry(),
                     staging.tree.number(), wasEmptyDirectory);
    if (isBack) return;
    leftover = std::move(staging.oldTreeLeft);
    staging.name.clear();
}

/// Commits staging. Returns the message of a failure, null when there is none.
const char* commit(Staging& staging, const fs::path& path) {
    if (!isInPlace(staging, path) || !completeTree(staging)) return cannotMove;
    const FileDescriptor parent = openDirectory({staging.destination.parent.number(), "."});
    if (staging.sync && (!parent || syncfs(staging.directory.number()) != 0)) return cannotFlush;

    const Entry target = staging.destination.entry();
    const int tree = staging.tree.number();
    const bool isOnEmptyDirectory = isEmptyDirectory(target);
    const Placement placed = place(staging);
    tellWhatIsAside(staging);
    if (placed != Placement::done) return messageOf(placed);

    // Who was removing files when the tree was moved goes on removing them. But what another run
    // has replaced by now, and deletes, has been in its place.
    const bool isWhole = staging.names.areStillIn(tree) || !isOpenAs(target, tree);
    const bool isFlushed = !staging.sync || fsync(parent.number()) == 0;
    if (isWhole && isFlushed) return nullptr;
    if (isOpenAs(target, tree)) takeBack(staging, isOnEmptyDirectory);
    return isWhole ? cannotFlush : cannotMove;
}

/// Stores `message`, if there is one, as the error; true when there is none.
bool succeeded(const char* message, std::string& error) {
    if (message != nullptr) error = message;
    return message == nullptr;
}

}  // namespace

bool vesk::runtime::archives::prepareExtractionStaging(const fs::path& destination, bool overwrite,
                                                       fs::path& staging, std::string& error) {
    standin::abandonStaging();
    leftover.reset();
    // Noted before anything is made: no lack of memory can lose it.
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
    // Descriptors may be few, and removing the parents takes one.
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
