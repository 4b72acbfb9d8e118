// SPDX-License-Identifier: MIT
// The steps of an extraction as the module performs them, with a sample tree: for the trials of
// staging and commit.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "hostcheck/requirement.h"

namespace vesk::hostcheck {

/// The result of a staging function, and the error text after the call.
struct Answer {
    bool succeeded;
    std::string error;
};

/// Names with contents; directories end in a slash.
using Tree = std::map<std::string, std::string>;

/// Prepares staging for `destination` and returns the staging path. A refusal is a deviation.
std::filesystem::path prepare(const Trial& trial, const std::filesystem::path& destination,
                              bool overwrite = false);

/// Commits `staging` to `destination`.
Answer commit(const Trial& trial, const std::filesystem::path& staging,
              const std::filesystem::path& destination, std::string error = "");

/// Like commit; a failure is a deviation.
void commitSuccessfully(const Trial& trial, const std::filesystem::path& staging,
                        const std::filesystem::path& destination);

/// A tree to extract: nested, hidden and empty files, unusual names, an empty directory.
Tree sampleTree();

/// Writes the tree below the normal form of `root`, as an extraction does.
void fill(const std::filesystem::path& root, const Tree& tree);

/// The tree that extractOneFile extracts.
Tree oneFile();

/// Prepares, fills and commits; a failure is a deviation.
void extractOneFile(const Trial& trial, const std::filesystem::path& destination,
                    bool overwrite = false);

/// Removes the staging directory, wherever it is, without telling the runtime.
void makeVanish(const std::filesystem::path& staging);

/// Returns the tree below `root`; an empty one when there is no directory.
Tree readTree(const std::filesystem::path& root);

/// Throws a deviation unless `root` holds exactly `tree`.
void expectTree(const Tree& tree, const std::filesystem::path& root);

/// Files that users may have beside a destination named `out`.
Tree neighbours();

/// Makes `elsewhere`, a directory with files, and below `root` symbolic links to these files.
void linkElsewhere(const std::filesystem::path& root, const std::filesystem::path& elsewhere);

/// Throws a deviation unless `elsewhere` holds exactly what linkElsewhere made.
void expectElsewhere(const std::filesystem::path& elsewhere);

/// Returns the first difference between `came` and `tree`; an empty text when they are equal.
std::string difference(const Tree& tree, const Tree& came);

/// Returns the names in `directory`, between quotation marks.
std::string namesIn(const std::filesystem::path& directory);

}  // namespace vesk::hostcheck
