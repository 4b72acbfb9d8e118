// SPDX-License-Identifier: MIT
// The names of what an extraction keeps beside its destination. They are hidden, start with the
// destination's own name and tell a person who finds one what it was for.
#pragma once

#include <filesystem>

namespace vesk::standin {

/// Returns the pattern, for mkdtemp, of the staging directory beside `target`. Whether the target
/// may be replaced becomes part of the name, since the commit is told nothing but the name.
std::filesystem::path stagingPattern(const std::filesystem::path& target, bool overwrite);

/// Tells whether `staging`, made after stagingPattern, is to replace an existing target.
bool stagingReplaces(const std::filesystem::path& staging);

/// Returns the path beside `target` to which the old tree is moved while the one at `staging` takes
/// its place. As unique as the staging directory's own name.
std::filesystem::path replacedTreePath(const std::filesystem::path& target,
                                       const std::filesystem::path& staging);

/// Returns the path beside `target` of the directory that shows which permissions a new directory
/// gets there. As unique as the staging directory's own name.
std::filesystem::path permissionProbePath(const std::filesystem::path& target,
                                          const std::filesystem::path& staging);

}  // namespace vesk::standin
