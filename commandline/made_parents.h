// SPDX-License-Identifier: MIT
// The missing directories that the module makes on the way to a new archive.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vesk::commandline {

/// Removes, when it is destroyed, those directories on the way to a file that were missing when it
/// was created and are empty by then, the innermost first. They are looked for below the directory
/// that was there, wherever that has been moved, and through no links.
class MadeParents {
public:
    explicit MadeParents(const std::filesystem::path& file);
    ~MadeParents();
    MadeParents(const MadeParents&) = delete;
    MadeParents& operator=(const MadeParents&) = delete;

    /// The file is there: its directories stay.
    void keep() { missing_.clear(); }

private:
    std::vector<std::string> missing_;  ///< the names, the outermost first
    std::vector<int> directories_;      ///< the one that is there, then place for those below it
};

}  // namespace vesk::commandline
