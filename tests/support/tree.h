// SPDX-License-Identifier: MIT
// Directory trees as values: written to disk, read back, and compared as maps.
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "tests/support/temp_dir.h"

namespace vesk::testing {

/// The regular files of a tree: relative name to content.
using Tree = std::map<std::string, std::string>;

/// Writes the files of `tree` below `root`, which is created even when the tree is empty.
inline void writeTree(const std::filesystem::path& root, const Tree& tree) {
    std::filesystem::create_directories(root);
    for (const auto& [name, content] : tree)
        writeFile(root / name, content);
}

/// Reads the tree at `root`. Besides regular files it contains what a comparison must notice: an
/// empty directory as its name with "/" at the end, any other object as its name with "?".
inline Tree readTree(const std::filesystem::path& root) {
    Tree tree;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        const std::string name = entry.path().native().substr(root.native().size() + 1);
        const auto type = entry.symlink_status().type();
        if (type == std::filesystem::file_type::regular) {
            tree[name] = readFile(entry.path());
        } else if (type != std::filesystem::file_type::directory) {
            tree[name + "?"] = "";
        } else if (std::filesystem::is_empty(entry.path())) {
            tree[name + "/"] = "";
        }
    }
    return tree;
}

}  // namespace vesk::testing
