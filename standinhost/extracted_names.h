// SPDX-License-Identifier: MIT
// Records what an extraction has made, to notice at the commit whether something is missing.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vesk::standin {

/// Collects a hash of each name that is extracted, 8 bytes each, and compares the number of names
/// with the number of entries on disk. That takes a fraction of the extraction's time.
class ExtractedNames {
public:
    /// Notes a name as it stands in the archive. A name that is noted twice counts once.
    void note(std::string_view name);

    /// Tells whether the open directory `tree`, which has just been moved to where it is, holds at
    /// least as many entries as were noted, at all depths. When a directory may not be read, the
    /// tree counts as whole.
    bool areIn(int tree);

    /// Tells the same once more. Counts again only in directories that have changed since that
    /// move.
    bool areStillIn(int tree) const noexcept;

private:
    /// A directory of the tree, and the number of its entries when it was read; the number of all
    /// noted names when it could not be read.
    struct ReadDirectory {
        std::string name;  ///< below the tree, with a slash at its end; empty for the tree itself
        std::size_t entries;
    };

    void noteNormal(std::string_view name);

    /// The time at which the tree's move changed the directory above it, by the file system's
    /// clock.
    timespec moved_{};
    std::vector<ReadDirectory> directories_;
    std::vector<std::uint64_t> hashes_;
    std::string last_;
    std::string lastDirectory_;
};

}  // namespace vesk::standin
