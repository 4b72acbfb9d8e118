// SPDX-License-Identifier: MIT
// What the module meets on its walk through a source, as observed from outside.
#pragma once

#include <dirent.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "commandline/group.h"

namespace vesk::commandline {

/// What an archive of a source leaves out or changes.
struct SourceFindings {
    Group directoryLinks;    ///< symbolic links to directories
    Group fileLinks;         ///< symbolic links to files, which are stored in their place
    Group specialFiles;      ///< FIFOs, sockets, devices, and links to them
    Group emptyDirectories;  ///< directories without files, here and below
    Group refusedNames;      ///< files whose names are refused when they are unpacked
    Group executables;       ///< files that somebody may execute
    /// False if the modes of some files were not read, so that `executables` may lack some.
    bool allModesAreKnown = true;
};

/// Watches the calling thread read directories, from its construction until `end`. It sees what a
/// recursive walk through one directory sees, in the same order.
///
/// A second walk would cost up to a quarter of the time that making an archive of small files
/// takes. So this program defines `readdir` itself, which the standard library's iterators call.
/// That gives names and types at no cost.
class SourceWalk {
public:
    SourceWalk();
    ~SourceWalk() { end(); }
    SourceWalk(const SourceWalk&) = delete;
    SourceWalk& operator=(const SourceWalk&) = delete;

    void end();

    /// Returns the number of names met so far. May be called on any thread at any time.
    std::uint64_t namesMet() const { return namesMet_.load(std::memory_order_relaxed); }

    /// Returns how many files of `source` an archive holds; checks what the links lead to. May be
    /// called on any thread after `end`. Returns 0 if memory ran out.
    std::uint64_t storedFiles(const std::string& source) const;

    /// Returns what was met, for an archive of `storedFiles` entries made from `source`; empty if
    /// memory ran out. To be called once, after `end`.
    SourceFindings findings(const std::string& source, std::uint64_t storedFiles) noexcept;

    /// Called by `readdir`: the calling thread has read `entry`, null at the end, from `directory`.
    static void note(DIR* directory, const dirent* entry) noexcept;

private:
    /// A directory that is being read.
    struct OpenDirectory {
        DIR* stream;
        std::size_t pathSize;
        const char* last;  ///< the name that was read last
        bool isRefused;    ///< its path has a character that names may not have
        bool holdsFiles;
        std::size_t firstLink;  ///< links_ from here on were met in it or below
    };

    void enter(DIR* directory);
    void leave();
    void noteEntry(const dirent& entry);
    void noteMode(const char* name);
    bool linksToFile(const OpenDirectory& directory) const;
    void noteSingleFile(const std::string& source);
    void settleLinks(const std::string& source, std::uint64_t storedFiles);

    std::vector<OpenDirectory> open_;
    /// The path below the source of the directory that is being read, with a slash at its end;
    /// empty for the source itself.
    std::string path_;
    std::vector<std::string> links_;
    SourceFindings findings_;
    std::uint64_t files_ = 0;
    std::atomic<std::uint64_t> namesMet_ = 0;
    bool hasBegun_ = false;   ///< a directory has been read
    bool hasFailed_ = false;  ///< memory ran out
};

}  // namespace vesk::commandline
