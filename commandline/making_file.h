// SPDX-License-Identifier: MIT
// The file in which an archive is made, beside the one that it becomes.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>

namespace vesk::commandline {

/// Returns a path beside `target` that nobody else uses: .NAME.vesk-making-XXXXXX.
std::string makingPath(const std::filesystem::path& target);

/// Somebody has guessed such a path and put something there, which is not to be written to.
struct NameTaken {};

/// The file at such a path. It is removed when this is destroyed, unless it has become the archive.
class MakingFile {
public:
    MakingFile(std::string path, std::filesystem::path target, bool overwrite);
    ~MakingFile();
    MakingFile(const MakingFile&) = delete;
    MakingFile& operator=(const MakingFile&) = delete;

    /// Creates the empty file, which nobody else can open at any moment where it is to replace
    /// another. Where that fails, the module is left to find out.
    void create();

    /// Makes the file that the module has written the archive. Returns null or the message of a
    /// failure: the target is then as it was. The archive has the mode and, where the system lets
    /// it, the owner of the one that it replaces. With `sync` it is on the disk before it takes its
    /// place; only when that cannot be said of its name can a failure leave it there. Throws
    /// Interruption before it takes its place.
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
