// SPDX-License-Identifier: MIT
// Observing how directories are read.
#include "commandline/source_walk.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <utility>

namespace vesk::commandline {

namespace {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): readdir has no other way
thread_local SourceWalk* current = nullptr;

/// Characters that unpacking refuses in names, since they mean something else on some systems.
constexpr const char* refusedCharacters = ":\\";

bool isRefused(const char* name) {
    return std::strpbrk(name, refusedCharacters) != nullptr;
}

bool isDots(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

void add(Group& group, std::string name) {
    if (group.count++ == 0 || name < group.first) group.first = std::move(name);
}

bool isExecutable(const struct stat& status) {
    return S_ISREG(status.st_mode) && (status.st_mode & 0111) != 0;
}

/// The type of the entry itself, for file systems that do not give it with the name.
unsigned char typeOf(DIR* directory, const char* name) {
    struct stat status {};
    if (fstatat(dirfd(directory), name, &status, AT_SYMLINK_NOFOLLOW) != 0) return DT_UNKNOWN;
    return static_cast<unsigned char>(IFTODT(status.st_mode));
}

/// The mode of the link's target; 0 if there is none.
mode_t modeBehind(const std::string& source, const std::string& link) {
    struct stat status {};
    const std::filesystem::path path = std::filesystem::path(source) / link;
    return stat(path.c_str(), &status) == 0 ? status.st_mode : 0;
}

}  // namespace

SourceWalk::SourceWalk() {
    current = this;
}

void SourceWalk::end() {
    if (current == this) current = nullptr;
}

std::uint64_t SourceWalk::storedFiles(const std::string& source) const {
    if (hasFailed_) return 0;
    if (!hasBegun_) return 1;
    std::uint64_t stored = files_;
    for (const std::string& link : links_)
        stored += S_ISREG(modeBehind(source, link)) ? 1U : 0U;
    return stored;
}

SourceFindings SourceWalk::findings(const std::string& source, std::uint64_t storedFiles) noexcept {
    if (hasFailed_) return {};
    try {
        if (!hasBegun_) noteSingleFile(source);
        settleLinks(source, storedFiles);
    } catch (const std::exception&) {
        return {};
    }
    return std::move(findings_);
}

// The standard library's iterators do not expect an exception from reading a directory.
void SourceWalk::note(DIR* directory, const dirent* entry) noexcept {
    SourceWalk* const walk = current;
    if (walk == nullptr) return;
    const int error = errno;
    try {
        const bool isEntered = walk->open_.empty() || walk->open_.back().stream != directory;
        if (isEntered) walk->enter(directory);
        if (entry == nullptr) {
            walk->leave();
        } else if (!isDots(entry->d_name)) {
            walk->noteEntry(*entry);
        }
    } catch (const std::exception&) {
        walk->hasFailed_ = true;
        walk->end();
    }
    errno = error;
}

void SourceWalk::noteEntry(const dirent& entry) {
    const char* const name = &entry.d_name[0];
    OpenDirectory& here = open_.back();
    here.last = name;
    namesMet_.store(namesMet() + 1, std::memory_order_relaxed);

    const unsigned char type =
        entry.d_type == DT_UNKNOWN ? typeOf(here.stream, name) : entry.d_type;
    if (type == DT_REG) {
        ++files_;
        here.holdsFiles = true;
        if (here.isRefused || isRefused(name)) add(findings_.refusedNames, path_ + name);
        noteMode(name);
    } else if (type == DT_LNK) {
        links_.push_back(path_ + name);
        noteMode(name);
    } else if (type != DT_DIR && type != DT_UNKNOWN) {
        add(findings_.specialFiles, path_ + name);
    }
}

void SourceWalk::enter(DIR* directory) {
    hasBegun_ = true;
    bool isInRefused = false;
    if (!open_.empty()) {
        const OpenDirectory& above = open_.back();
        path_.append(above.last).append("/");
        isInRefused = above.isRefused || isRefused(above.last);
    }
    open_.push_back({directory, path_.size(), nullptr, isInRefused, false, links_.size()});
}

void SourceWalk::leave() {
    const OpenDirectory& left = open_.back();
    const bool holdsFiles = left.holdsFiles || linksToFile(left);
    if (!holdsFiles && open_.size() > 1)
        add(findings_.emptyDirectories, path_.substr(0, path_.size() - 1));
    open_.pop_back();
    if (open_.empty()) return end();
    path_.resize(open_.back().pathSize);
    open_.back().holdsFiles = open_.back().holdsFiles || holdsFiles;
}

/// Whether one of the links in the directory itself leads to a file.
bool SourceWalk::linksToFile(const OpenDirectory& directory) const {
    for (std::size_t i = directory.firstLink; i < links_.size(); ++i) {
        const char* const name = links_[i].c_str() + directory.pathSize;
        struct stat status {};
        if (std::strchr(name, '/') == nullptr &&
            fstatat(dirfd(directory.stream), name, &status, 0) == 0 && S_ISREG(status.st_mode))
            return true;
    }
    return false;
}

// Reading a mode takes a system call, which is a tenth of the time for archiving a small file. So
// after the first files only a sample is read.
void SourceWalk::noteMode(const char* name) {
    constexpr std::uint64_t firstFiles = 64;
    constexpr std::uint64_t thenEach = 64;
    const std::uint64_t number = files_ + links_.size();
    if (number > firstFiles && number % thenEach != 0) {
        findings_.allModesAreKnown = false;
        return;
    }
    struct stat status {};
    if (fstatat(dirfd(open_.back().stream), name, &status, 0) == 0 && isExecutable(status))
        add(findings_.executables, path_ + name);
}

void SourceWalk::noteSingleFile(const std::string& source) {
    struct stat status {};
    if (stat(source.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
    const std::string name = std::filesystem::path(source).filename();
    if (isRefused(name.c_str())) add(findings_.refusedNames, name);
    if (isExecutable(status)) add(findings_.executables, name);
}

// Checking a link's target takes a system call. That is done only if the number of entries shows
// that some links lead to no file.
void SourceWalk::settleLinks(const std::string& source, std::uint64_t storedFiles) {
    const bool allAreStored = files_ + links_.size() == storedFiles;
    for (const std::string& link : links_) {
        const mode_t mode = allAreStored ? S_IFREG : modeBehind(source, link);
        if (S_ISDIR(mode)) {
            add(findings_.directoryLinks, link);
        } else if (!S_ISREG(mode)) {
            add(findings_.specialFiles, link);
        } else {
            add(findings_.fileLinks, link);
            if (isRefused(link.c_str())) add(findings_.refusedNames, link);
        }
    }
}

}  // namespace vesk::commandline

/// Replaces the C library's function: every directory is read through this one.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the system's is reserved
extern "C" dirent* readdir(DIR* directory) {
    // With offsets longer than a word, the C library's headers give this function another name.
    constexpr const char* name = sizeof(off_t) > sizeof(long) ? "readdir64" : "readdir";
    // NOLINTNEXTLINE(concurrency-mt-unsafe): one thread reads one directory
    static const auto next = reinterpret_cast<decltype(&readdir)>(dlsym(RTLD_NEXT, name));
    dirent* const entry = next(directory);
    vesk::commandline::SourceWalk::note(directory, entry);
    return entry;
}
