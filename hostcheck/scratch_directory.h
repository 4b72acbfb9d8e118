// SPDX-License-Identifier: MIT
// Fresh directories for one trial.
#pragma once

#include <filesystem>
#include <vector>

namespace vesk::hostcheck {

/// An empty directory that is removed, with what it holds by then, at the end of its life.
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

/// Returns the directories in which scratch directories are made: that for temporary files and,
/// where there is one to write to, one on another file system.
std::vector<std::filesystem::path> scratchParents();

}  // namespace vesk::hostcheck
