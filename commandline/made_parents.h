// SPDX-License-Identifier: MIT
// The missing directories that the module creates for a new archive.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vesk::commandline {

/// On destruction, removes the directories above a file that were missing on construction and are
/// empty now, innermost first. It looks for them below the directory that existed, even if that has
/// been moved, and follows no links.
class MadeParents {
public:
    explicit MadeParents(const std::filesystem::path& file);
    ~MadeParents();
    MadeParents(const MadeParents&) = delete;
    MadeParents& operator=(const MadeParents&) = delete;

    /// Writes the names of those directories to the disk, now that they exist. Returns false if
    /// that fails.
    bool sync() const;

    /// The file exists now: its directories stay.
    void keep() { missing_.clear(); }

private:
    std::vector<std::string> missing_;  ///< the names, the outermost first
    std::vector<int> directories_;      ///< the existing one, then space for those below it
};

}  // namespace vesk::commandline
