// SPDX-License-Identifier: MIT
// Puts a finished tree at its final path in such a way that this path names, at every instant and
// even if the process is killed, nothing, the whole old tree or the whole new one.
#pragma once

#include <filesystem>

namespace vesk::standin {

enum class Placement { done, targetExists, failed };

/// Moves `staging` to `target`, which must not exist: whatever appeared there meanwhile is kept.
Placement placeNewTree(const std::filesystem::path& staging, const std::filesystem::path& target);

/// Moves `staging` to `target` and deletes what was there, if anything. Trees are exchanged in one
/// step; where the file system cannot do that, the old tree waits at `aside`, an unused path beside
/// the target, and is moved back when the new one cannot be moved in. Succeeds, too, when the old
/// tree cannot be deleted completely; on failure it is at `target` as before. Never gives
/// `targetExists`.
Placement replaceTree(const std::filesystem::path& staging, const std::filesystem::path& target,
                      const std::filesystem::path& aside);

}  // namespace vesk::standin
