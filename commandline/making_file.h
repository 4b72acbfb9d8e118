// SPDX-License-Identifier: MIT
// The file in which an archive is made, beside the file that it becomes.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>

namespace vesk::commandline {

/// Returns a path beside `target` where nothing is, and which nobody can guess:
/// .NAME.vesk-making-XXXXXXXXXXXX. Returns nothing if no such path can be found.
std::optional<std::string> makingPath(const std::filesystem::path& target);

/// The file at such a path, which the module creates when it writes the archive. The destructor
/// removes it, unless it has become the archive.
class MakingFile {
public:
    /// Must exist before the module is called: it changes the process's umask so that nobody else
    /// can read what is to replace a file at `target`. With `overwrite` such a file may be
    /// replaced, and with `sync` the archive is on the disk, under its name, when it has been
    /// published.
    MakingFile(std::string path, std::filesystem::path target, bool overwrite, bool sync);
    ~MakingFile();
    MakingFile(const MakingFile&) = delete;
    MakingFile& operator=(const MakingFile&) = delete;

    /// Turns the file that the module has written into the archive. Returns null, or the message of
    /// a failure, after which the target is as it was, with one exception. The archive gets the
    /// mode and, if the system permits it, the owner of the file that it replaces. If only the name
    /// could not be written to the disk, that is the exception: a failure after which the archive
    /// stays. Throws Interruption only before the archive takes its place.
    const char* publish();

private:
    void setUmask();
    bool openWritten();
    const char* prepare(bool& replaces) const;
    const char* moveIntoPlace();
    bool takeOver(const struct stat& old) const;
    bool takeOrdinaryMode() const;

    std::string path_;
    std::filesystem::path target_;
    bool overwrite_;
    bool sync_;
    std::optional<mode_t> ordinaryMode_;  ///< unless the file has it by itself
    int descriptor_ = -1;
};

}  // namespace vesk::commandline
