// SPDX-License-Identifier: MIT
// Naming the file beside its target, and moving it into place.
#include "commandline/making_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>

#include "commandline/file_placement.h"
#include "commandline/interruption.h"
#include "commandline/last_words.h"

namespace vesk::commandline {

namespace {

namespace fs = std::filesystem;

constexpr const char* cannotCreate = "Cannot create archive";
constexpr const char* cannotFinalize = "Cannot finalize archive";
constexpr std::string_view mark = ".vesk-making-";
constexpr int namingAttempts = 10;
constexpr std::size_t suffixLength = 12;  // some 70 bits: more than anybody can guess

/// The bytes left for the target's name: a file name has at most 255, and the dot, the mark and the
/// suffix take some.
constexpr std::size_t longestName = 255 - 1 - mark.size() - suffixLength;

/// Cuts `name` to the bytes that fit, between two UTF-8 characters: some file systems refuse half a
/// character.
std::string_view shortened(std::string_view name) {
    const auto isInsideCharacter = [name](std::size_t at) {
        return at < name.size() && (static_cast<unsigned char>(name[at]) & 0xC0) == 0x80;
    };
    std::size_t end = std::min(name.size(), longestName);
    while (end > 0 && isInsideCharacter(end))
        --end;
    return name.substr(0, end);
}

std::string randomSuffix() {
    constexpr std::string_view letters =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::array<unsigned char, suffixLength> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) == -1) {
        // A sandbox may forbid it. Then the name could be guessed, but no other process uses it.
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        const pid_t process = getpid();
        std::memcpy(bytes.data(), &now.tv_nsec, sizeof now.tv_nsec);
        std::memcpy(bytes.data() + sizeof now.tv_nsec, &process, sizeof process);
    }
    std::string suffix;
    for (const unsigned char byte : bytes)
        suffix += letters[byte % letters.size()];
    return suffix;
}

/// A new name survives a power failure only when its directory has been written to the disk.
bool syncDirectoryOf(const fs::path& file) {
    const fs::path directory = file.has_parent_path() ? file.parent_path() : fs::path(".");
    const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor == -1) return false;
    // Some file systems have nothing to do here, and report that as an error.
    const bool isDone = fsync(descriptor) == 0 || errno == EINVAL;
    close(descriptor);
    return isDone;
}

std::optional<mode_t> modeOf(int descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) return std::nullopt;
    return status.st_mode & 07777;
}

/// Some file systems have a single mode, and refuse to set even that.
bool giveMode(int descriptor, mode_t mode) {
    return modeOf(descriptor) == mode || fchmod(descriptor, mode) == 0;
}

}  // namespace

std::optional<std::string> makingPath(const fs::path& target) {
    for (int attempt = 0; attempt < namingAttempts; ++attempt) {
        std::string name = ".";
        name.append(shortened(target.filename().native())).append(mark).append(randomSuffix());
        std::string path = target.parent_path() / name;
        struct stat status {};
        if (lstat(path.c_str(), &status) != 0) return path;
    }
    return std::nullopt;
}

MakingFile::MakingFile(std::string path, fs::path target, bool overwrite, bool sync)
    : path_(std::move(path)), target_(std::move(target)), overwrite_(overwrite), sync_(sync) {
    setUmask();
    expectMakingIn(path_, target_);
}

// Not created in advance: whoever sees such a file could put a link in its place, to which the
// module would write. And some file systems (ext4, Btrfs) hold up the closing of a file that was
// emptied when it was opened until its data is on the way to the disk.
void MakingFile::setUmask() {
    const mode_t forNobodyElse = 0177;
    const mode_t forEverybody = 0666;
    const mode_t ordinary = umask(forNobodyElse);
    struct stat old {};
    const bool replaces = overwrite_ && lstat(target_.c_str(), &old) == 0;
    // Whoever gives the file a mode or has it written to the disk must be able to open it.
    const mode_t openable = overwrite_ || sync_ ? ordinary & ~mode_t{0600} : ordinary;
    const mode_t set = replaces ? forNobodyElse : openable;
    umask(set);
    if (set != ordinary) ordinaryMode_ = forEverybody & ~ordinary;
}

// If it has become the archive, the descriptor stays open: through it the last words see that.
MakingFile::~MakingFile() {
    if (path_.empty()) return;
    noteMakingDescriptor(-1);
    if (descriptor_ != -1)
        close(descriptor_);  // else the file would take space even without a name
    unlink(path_.c_str());
}

// A new file may have a mode that permits nothing. What somebody else has put in the file's place
// is no file, or has another name elsewhere.
bool MakingFile::openWritten() {
    const int flags = overwrite_ || sync_ ? O_RDONLY | O_NONBLOCK | O_NOCTTY : O_PATH;
    descriptor_ = open(path_.c_str(), flags | O_NOFOLLOW | O_CLOEXEC);
    noteMakingDescriptor(descriptor_);
    struct stat status {};
    return fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink <= 1;
}

bool MakingFile::takeOver(const struct stat& old) const {
    const bool hasOwner =
        fchown(descriptor_, old.st_uid, old.st_gid) == 0 ||
        (fchown(descriptor_, static_cast<uid_t>(-1), old.st_gid) == 0 && old.st_uid == geteuid());
    // Rights that a file grants in its owner's name (such as set-user-ID) must not pass to another
    // owner.
    return giveMode(descriptor_, old.st_mode & (hasOwner ? 07777 : 0777));
}

bool MakingFile::takeOrdinaryMode() const {
    return !ordinaryMode_ || giveMode(descriptor_, *ordinaryMode_);
}

const char* MakingFile::prepare(bool& replaces) const {
    struct stat old {};
    replaces = overwrite_ && lstat(target_.c_str(), &old) == 0;
    if (replaces && !S_ISREG(old.st_mode)) return cannotCreate;
    const bool hasMode = replaces ? takeOver(old) : takeOrdinaryMode();
    if (!hasMode) return cannotFinalize;
    return sync_ && fsync(descriptor_) != 0 ? cannotFinalize : nullptr;
}

const char* MakingFile::moveIntoPlace() {
    // If overwriting is allowed, a file that appears at the target after the check is checked, too.
    FilePlacement placed = FilePlacement::targetExists;
    for (int tries = 0; placed == FilePlacement::targetExists && tries < 10; ++tries) {
        bool replaces = false;
        if (const char* const message = prepare(replaces)) return message;
        throwIfInterrupted();
        placed =
            replaces ? replaceFile(path_, target_.native()) : placeNewFile(path_, target_.native());
        if (!overwrite_) break;
    }
    if (placed == FilePlacement::targetExists) return "Archive already exists";
    return placed == FilePlacement::done ? nullptr : cannotFinalize;
}

const char* MakingFile::publish() {
    if (!openWritten()) return cannotCreate;
    if (const char* const message = moveIntoPlace()) return message;
    path_.clear();
    return sync_ && !syncDirectoryOf(target_) ? cannotFinalize : nullptr;
}

}  // namespace vesk::commandline
