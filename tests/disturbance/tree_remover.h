// SPDX-License-Identifier: MIT
// Removing a tree that another program is extracting and moving into its place.
#pragma once

#include <filesystem>
#include <set>
#include <string>

namespace vesk::testing {

/// The removed files and directories, by their names relative to the tree's root. The name of the
/// root is empty.
struct RemovedNames {
    bool fileBeforePlaced = false;  ///< a file of the new tree, before that tree was in its place
    std::set<std::string> fromPlaced;  ///< of the new tree, after it was in its place
    std::set<std::string> fromOld;     ///< of the tree that the new one replaces
};

/// Removes as rm -r does: through open directories, wherever these have been moved meanwhile.
class TreeRemover {
public:
    /// `tree` is the new tree's root, open with any flags, or -1 when there is none any more; the
    /// destructor closes it. `destination` is the path of the tree's place.
    TreeRemover(int tree, std::filesystem::path destination);
    TreeRemover(const TreeRemover&) = delete;
    TreeRemover& operator=(const TreeRemover&) = delete;
    ~TreeRemover();

    /// Removes the staging directory with all that is in it.
    void removeStaging(const std::filesystem::path& staging);
    /// Removes the tree in the staging directory.
    void removeTree(const std::filesystem::path& staging);
    /// Removes the file of the tree in the staging directory that has this name.
    void removeFile(const std::filesystem::path& staging, const std::string& name);

    const RemovedNames& removed() const { return removed_; }

private:
    /// An open directory and its name, which ends in a slash unless it is the root.
    struct Directory {
        int number;
        bool isOfNewTree;
        std::string name;
    };

    void removeRoot(int staging, const char* name);
    void removeEntry(const Directory& directory, const char* entry);
    void note(const Directory& directory, const std::string& entry, bool isFile);
    bool isNewTree(int directory) const;
    bool isPlaced() const;

    int tree_;
    std::filesystem::path destination_;
    RemovedNames removed_;
};

}  // namespace vesk::testing
