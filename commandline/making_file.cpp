// SPDX-License-Identifier: MIT
// Creating the file beside its target, and putting it in its place.
#include "commandline/making_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
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
constexpr std::size_t suffixLength = 6;

/// What is left of the 255 bytes of a file name after the dot, the mark and the suffix.
constexpr std::size_t longestName = 255 - 1 - mark.size() - suffixLength;

/// Cuts `name` to the bytes for which there is room, between two UTF-8 characters: some file
/// systems refuse half of one.
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
    std::uint64_t number = 0;
    if (getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        number = static_cast<std::uint64_t>(now.tv_nsec) << 32 ^
                 static_cast<std::uint64_t>(getpid()) << 12 ^
                 static_cast<std::uint64_t>(now.tv_sec);
    }
    std::string suffix;
    for (std::size_t i = 0; i < suffixLength; ++i, number /= letters.size())
        suffix += letters[static_cast<std::size_t>(number % letters.size())];
    return suffix;
}

/// A directory's name may not survive a failure of power before the directory itself is written.
bool syncDirectoryOf(const fs::path& file) {
    const fs::path directory = file.has_parent_path() ? file.parent_path() : fs::path(".");
    const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor == -1) return false;
    // Some file systems have nothing to do here, and say so.
    const bool isDone = fsync(descriptor) == 0 || errno == EINVAL;
    close(descriptor);
    return isDone;
}

std::optional<mode_t> modeOf(int descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) return std::nullopt;
    return status.st_mode & 07777;
}

/// Some file systems know one mode only, and refuse even what changes nothing.
bool giveMode(int descriptor, mode_t mode) {
    return modeOf(descriptor) == mode || fchmod(descriptor, mode) == 0;
}

}  // namespace

std::string makingPath(const fs::path& target) {
    std::string name = ".";
    name.append(shortened(target.filename().native())).append(mark).append(randomSuffix());
    return (target.parent_path() / name).native();
}

MakingFile::MakingFile(std::string path, fs::path target, bool overwrite)
    : path_(std::move(path)), target_(std::move(target)), overwrite_(overwrite) {}

// The descriptor stays open: the last words look through it at what has become of the file.
MakingFile::~MakingFile() {
    if (path_.empty()) return;
    unlink(path_.c_str());
    // Without a name, it takes room until the end of the process: its descriptor is never closed.
    struct stat status {};
    const bool isNameless = fstat(descriptor_, &status) == 0 && status.st_nlink == 0;
    if (isNameless && ftruncate(descriptor_, 0) != 0) return;
}

void MakingFile::create() {
    const bool isCreated = overwrite_ ? createPrivate() : open(O_CREAT | O_EXCL, 0666);
    if (isCreated) {
        // Whatever the umask, the module must be able to open it.
        const auto mode = modeOf(descriptor_);
        if (!mode || (*mode & 0600) != 0600) fchmod(descriptor_, 0600);
    } else if (errno == EEXIST) {
        path_.clear();  // not this one's to remove
        throw NameTaken{};
    }
}

// Whoever opens a file while its mode allows it can read what is written there later. So the mode
// that an ordinary file would have is that of another one, which stays empty.
bool MakingFile::createPrivate() {
    const int ordinary =
        ::open(path_.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC | O_CREAT | O_EXCL, 0666);
    if (ordinary == -1) return false;
    const auto ordinaryMode = modeOf(ordinary);
    unlink(path_.c_str());
    close(ordinary);
    if (!open(O_CREAT | O_EXCL, 0600)) return false;
    ordinaryMode_ = ordinaryMode;
    return true;
}

bool MakingFile::open(int flags, mode_t mode) {
    descriptor_ = ::open(path_.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC | flags, mode);
    if (descriptor_ == -1) return false;
    expectMakingIn(path_, target_, descriptor_);
    ordinaryMode_ = modeOf(descriptor_);
    return true;
}

bool MakingFile::takeOver(const struct stat& old) const {
    const bool hasOwner =
        fchown(descriptor_, old.st_uid, old.st_gid) == 0 ||
        (fchown(descriptor_, static_cast<uid_t>(-1), old.st_gid) == 0 && old.st_uid == geteuid());
    // What a file does with its owner's rights is not handed to another owner.
    return giveMode(descriptor_, old.st_mode & (hasOwner ? 07777 : 0777));
}

const char* MakingFile::prepare(bool sync, bool& replaces) const {
    struct stat old {};
    replaces = overwrite_ && lstat(target_.c_str(), &old) == 0;
    if (replaces && !S_ISREG(old.st_mode)) return cannotCreate;
    const bool hasMode =
        replaces ? takeOver(old) : ordinaryMode_ && giveMode(descriptor_, *ordinaryMode_);
    if (!hasMode) return cannotFinalize;
    return sync && fsync(descriptor_) != 0 ? cannotFinalize : nullptr;
}

const char* MakingFile::moveIntoPlace(bool sync) {
    // What comes there after the look at the target is looked at, too, if it may be replaced.
    FilePlacement placed = FilePlacement::targetExists;
    for (int tries = 0; placed == FilePlacement::targetExists && tries < 10; ++tries) {
        bool replaces = false;
        if (const char* const message = prepare(sync, replaces)) return message;
        throwIfInterrupted();
        placed =
            replaces ? replaceFile(path_, target_.native()) : placeNewFile(path_, target_.native());
        if (!overwrite_) break;
    }
    if (placed == FilePlacement::targetExists) return "Archive already exists";
    return placed == FilePlacement::done ? nullptr : cannotFinalize;
}

const char* MakingFile::publish(bool sync) {
    if (descriptor_ == -1 && !open(0, 0)) return cannotCreate;
    if (const char* const message = moveIntoPlace(sync)) return message;
    path_.clear();
    return sync && !syncDirectoryOf(target_) ? cannotFinalize : nullptr;
}

}  // namespace vesk::commandline
