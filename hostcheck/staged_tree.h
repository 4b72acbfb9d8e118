// SPDX-License-Identifier: MIT
// The steps of an extraction as the module takes them, with a sample tree, for the trials of
// staging and commit.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "hostcheck/requirement.h"

namespace vesk::hostcheck {

/// The answer of a staging function, and the error text after it.
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

/// What `fill` writes: nested, hidden and empty files, odd names, an empty directory.
Tree sampleTree();

/// Writes the tree below `root`, as an extraction does: below its normal form.
void fill(const std::filesystem::path& root, const Tree& tree);

/// What extractOneFile writes.
Tree oneFile();

/// Prepares, fills and commits; a failure is a deviation.
void extractOneFile(const Trial& trial, const std::filesystem::path& destination,
                    bool overwrite = false);

/// Removes the staging directory behind the host's back, wherever it is.
void makeVanish(const std::filesystem::path& staging);

/// Returns what is below `root`; nothing when there is no directory.
Tree readTree(const std::filesystem::path& root);

/// Deviates when `root` does not hold exactly `tree`.
void expectTree(const Tree& tree, const std::filesystem::path& root);

/// What users may have beside a destination of the name out.
Tree neighbours();

/// Makes `elsewhere`, a directory with files, and below `root` symbolic links to what is in it.
void linkElsewhere(const std::filesystem::path& root, const std::filesystem::path& elsewhere);

/// Deviates when what linkElsewhere made in `elsewhere` is not as it was.
void expectElsewhere(const std::filesystem::path& elsewhere);

/// Returns the first thing in which `came` is not `tree`; nothing when they are equal.
std::string difference(const Tree& tree, const Tree& came);

/// Returns the names in `directory`, between quotation marks.
std::string namesIn(const std::filesystem::path& directory);

}  // namespace vesk::hostcheck
