// SPDX-License-Identifier: MIT
// What an extraction has made, so that it is noticed when some of it is gone before the commit.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vesk::standin {

/// Collects the names that are extracted, 8 bytes for each, and compares their number with what is
/// on disk. That costs a fraction of extracting them.
class ExtractedNames {
public:
    /// Notes a name as the archive gives it. A name that is noted again counts once.
    void note(std::string_view name);

    /// Tells whether at least as many entries as were noted are below the open directory `tree`,
    /// which has just been moved to where it is. Directories that cannot be read count as whole.
    bool areIn(int tree);

    /// Tells the same once more, by counting again in directories that have changed since that
    /// move.
    bool areStillIn(int tree) const noexcept;

private:
    /// A directory of the tree, and how many entries it had when it was read; that of all noted
    /// names if it could not be.
    struct ReadDirectory {
        std::string name;  ///< below the tree, with a slash at its end; empty for the tree itself
        std::size_t entries;
    };

    void noteNormal(std::string_view name);

    /// When the directory above the tree has changed by the tree's move, by its file system's
    /// clock.
    timespec moved_{};
    std::vector<ReadDirectory> directories_;
    std::vector<std::uint64_t> hashes_;
    std::string last_;
    std::string lastDirectory_;
};

}  // namespace vesk::standin
