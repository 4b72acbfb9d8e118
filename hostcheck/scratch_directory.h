// SPDX-License-Identifier: MIT
// New directories for one trial.
#pragma once

#include <filesystem>
#include <vector>

namespace vesk::hostcheck {

/// A new empty directory. The destructor removes it with all its content.
class ScratchDirectory {
public:
    /// Throws std::filesystem::filesystem_error when no directory can be made in `parent`.
    explicit ScratchDirectory(const std::filesystem::path& parent);
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

/// Returns the directories in which scratch directories are made: the one for temporary files and,
/// if there is a writable one, one on another file system.
std::vector<std::filesystem::path> scratchParents();

}  // namespace vesk::hostcheck
