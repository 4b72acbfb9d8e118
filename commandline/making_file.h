// SPDX-License-Identifier: MIT
// The file in which an archive is made, beside the file that it becomes.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>

namespace vesk::commandline {

/// Returns a path beside `target` that nobody else uses or can guess:
/// .NAME.vesk-making-XXXXXXXXXXXX.
std::string makingPath(const std::filesystem::path& target);

/// Something is already at such a path, and must not be written to.
struct NameTaken {};

/// The file at such a path. The destructor removes it, unless it has become the archive.
class MakingFile {
public:
    /// With `sync` the archive's content is on the disk before it takes its place, and its name is
    /// on the disk on success.
    MakingFile(std::string path, std::filesystem::path target, bool overwrite, bool sync);
    ~MakingFile();
    MakingFile(const MakingFile&) = delete;
    MakingFile& operator=(const MakingFile&) = delete;

    /// Creates the empty file, or leaves that to the module if the file needs nothing special. If
    /// it is to replace another, nobody else can open it at any moment. Throws NameTaken. Any other
    /// failure is not reported: the module will fail to write the file.
    void create();

    /// Turns the file that the module has written into the archive. Returns null, or the message of
    /// a failure, after which the target is as it was, with one exception. The archive gets the
    /// mode and, if the system permits it, the owner of the file that it replaces. If only the name
    /// could not be written to the disk, that is the exception: a failure after which the archive
    /// stays. Throws Interruption only before the archive takes its place.
    const char* publish();

private:
    bool isLeftToModule() const { return !overwrite_ && !sync_; }
    bool createEmpty();
    bool createPrivate();
    bool openWritten();
    bool open(int flags, mode_t mode);
    const char* prepare(bool& replaces) const;
    const char* moveIntoPlace();
    bool takeOver(const struct stat& old) const;
    bool takeOrdinaryMode() const;

    std::string path_;
    std::filesystem::path target_;
    bool overwrite_;
    bool sync_;
    int descriptor_ = -1;
    std::optional<mode_t> ordinaryMode_;
};

}  // namespace vesk::commandline
