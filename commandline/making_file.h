// SPDX-License-Identifier: MIT
// The file in which an archive is made, beside the file that it becomes.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>

namespace vesk::commandline {

/// Returns a path beside `target` that nobody else uses: .NAME.vesk-making-XXXXXX.
std::string makingPath(const std::filesystem::path& target);

/// Somebody guessed such a path and created something there, which must not be written to.
struct NameTaken {};

/// The file at such a path. The destructor removes it, unless it has become the archive.
class MakingFile {
public:
    MakingFile(std::string path, std::filesystem::path target, bool overwrite);
    ~MakingFile();
    MakingFile(const MakingFile&) = delete;
    MakingFile& operator=(const MakingFile&) = delete;

    /// Creates the empty file. If it is to replace another, nobody else can open it at any moment.
    /// Throws NameTaken. Any other failure is not reported: the module will fail to write the file.
    void create();

    /// Turns the file that the module has written into the archive. Returns null, or the message of
    /// a failure, after which the target is as it was, with one exception. The archive gets the
    /// mode and, if the system permits it, the owner of the file that it replaces. With `sync` its
    /// content is on the disk before it takes its place, and its name is on the disk on success. If
    /// only the name could not be written to the disk, that is the exception: a failure after which
    /// the archive stays. Throws Interruption only before the archive takes its place.
    const char* publish(bool sync);

private:
    bool createPrivate();
    bool open(int flags, mode_t mode);
    const char* prepare(bool sync, bool& replaces) const;
    const char* moveIntoPlace(bool sync);
    bool takeOver(const struct stat& old) const;

    std::string path_;
    std::filesystem::path target_;
    bool overwrite_;
    int descriptor_ = -1;
    std::optional<mode_t> ordinaryMode_;
};

}  // namespace vesk::commandline
