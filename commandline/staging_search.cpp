// SPDX-License-Identifier: MIT
// Reading the destination's directory. What a signal handler may call uses system calls only.
#include "commandline/staging_search.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <system_error>

#include "commandline/terminal.h"

namespace vesk::commandline {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view mark = ".vesk-";

/// The directory entry that unpacking replaces: links are followed, and dots and slashes at the end
/// are dropped.
fs::path entryOf(fs::path path) {
    std::error_code error;
    const auto isNamed = [&] { return path.has_filename() && path.filename() != "."; };
    const bool mayBeOther = !isNamed() || path.filename() == ".." || fs::is_symlink(path, error);
    fs::path resolved = mayBeOther ? fs::canonical(path, error) : path;
    if (!error && !resolved.empty()) return resolved;
    while (!isNamed() && path.has_relative_path())
        path = path.parent_path();
    return path;
}

/// Whether `name` is a shortened form of `whole`, which is too long for a mark after it. It is cut
/// between two characters, so up to a character's bytes may be missing at its end.
bool isCutTo(std::string_view name, std::string_view whole) {
    constexpr std::size_t cutOnlyAbove = 200;
    if (whole.size() <= cutOnlyAbove || !whole.starts_with(name)) return false;
    if (name.size() > cutOnlyAbove) return true;
    const std::string_view rest = whole.substr(name.size() + 1, cutOnlyAbove - name.size());
    return std::all_of(rest.begin(), rest.end(),
                       [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; });
}

/// What an entry's name begins with after its dot: the destination's name, shortened if it is too
/// long. Nothing if the entry is not from an unpacking to the destination.
std::optional<std::string_view> nameWithin(const StagingPlace& place, std::string_view entry) {
    const std::size_t end = entry.rfind(mark);
    if (!entry.starts_with('.') || end == std::string_view::npos || end == 0) return std::nullopt;
    const std::string_view name = entry.substr(1, end - 1);
    const bool isOurs = name == place.name || isCutTo(name, place.name);
    return isOurs ? std::optional(name) : std::nullopt;
}

bool isOfThisRun(const StagingPlace& place, int directory, const char* entry) {
    struct stat status {};
    if (fstatat(directory, entry, &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
    const timespec& changed = status.st_ctim;
    return changed.tv_sec != place.beginning.tv_sec ? changed.tv_sec > place.beginning.tv_sec
                                                    : changed.tv_nsec >= place.beginning.tv_nsec;
}

enum class Change { none, replaced, gone };

Change changeOf(const StagingPlace& place, int directory) {
    struct stat status {};
    const bool exists = fstatat(directory, place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (!exists) return place.destinationExisted ? Change::gone : Change::none;
    const bool isSame =
        place.destinationExisted && status.st_dev == place.device && status.st_ino == place.inode;
    return isSame ? Change::none : Change::replaced;
}

/// A handler cannot ask the locale, so on a terminal everything but printable ASCII is escaped.
void tellBytes(std::string_view bytes, bool isEscaped, FixedText& text) {
    for (const char byte : bytes) {
        if (!isEscaped || (byte >= ' ' && byte <= '~')) {
            text << std::string_view(&byte, 1);
        } else {
            const auto value = static_cast<unsigned char>(byte);
            const auto digit = [&](int shift) {
                return static_cast<char>('0' + (value >> shift & 7));
            };
            const std::array<char, 4> octal{'\\', digit(6), digit(3), digit(0)};
            text << std::string_view(octal.data(), octal.size());
        }
    }
}

void tellEntry(const StagingPlace& place, std::string_view entry, std::string_view name,
               Change change, FixedText& text) {
    text << "; '" << place.shownDirectory << ".";
    if (name.size() == place.name.size()) {
        text << place.shownName;
    } else {
        tellBytes(name, place.isEscaped, text);
    }
    tellBytes(entry.substr(1 + name.size()), place.isEscaped, text);
    // The name does not tell which process created it.
    text << (change == Change::gone
                 ? "' is left and may hold the old destination"
                 : "' is left and can be removed unless another unpacking made it");
}

/// What the system call getdents64 returns.
struct DirectoryEntries {
    alignas(dirent64) std::array<char, 8192> bytes{};
    long size = 0;

    bool read(int directory) {
        size = syscall(SYS_getdents64, directory, bytes.data(), bytes.size());
        return size > 0;
    }

    template <typename Function>
    void forEach(const Function& function) const {
        for (long at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(bytes.data() + at);
            function(entry->d_name);
            at += entry->d_reclen;
        }
    }
};

}  // namespace

StagingPlace stagingPlace(const fs::path& destination) {
    const fs::path entry = entryOf(destination);
    const fs::path directory = entry.parent_path();
    const std::string shownDirectory = directory.empty() ? "" : (directory / "").native();
    struct stat status {};
    const bool exists = lstat(entry.c_str(), &status) == 0;
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);  // the clock by which the kernel dates files
    return {directory.empty() ? "." : directory.native(),
            entry.filename().native(),
            forStandardError(shownDirectory),
            forStandardError(entry.filename().native()),
            standardErrorIsTerminal(),
            exists,
            status.st_dev,
            status.st_ino,
            now};
}

void tellStaging(const StagingPlace& place, FixedText& text) {
    const int directory = open(place.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const Change change = directory == -1 ? Change::none : changeOf(place, directory);
    if (change == Change::replaced) text << "; the archive was unpacked";
    bool isLeft = false;
    DirectoryEntries entries;
    while (entries.read(directory)) {
        entries.forEach([&](const char* entry) {
            const auto name = nameWithin(place, entry);
            if (!name || !isOfThisRun(place, directory, entry)) return;
            tellEntry(place, entry, *name, change, text);
            isLeft = true;
        });
    }
    if (directory != -1) close(directory);
    if (entries.size < 0) {
        text << "; something may be left beside the destination";
        return;
    }
    if (!isLeft && change == Change::none) text << "; the destination is as it was";
}

}  // namespace vesk::commandline
