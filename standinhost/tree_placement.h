// SPDX-License-Identifier: MIT
// Puts a finished tree at its final path in such a way that this path names, at every instant and
// even if the process is killed, nothing, the whole old tree or the whole new one.
#pragma once

#include "standinhost/open_directory.h"

namespace vesk::standin {

enum class Placement {
    done,
    targetExists,         ///< something is there that was not to be replaced
    targetIrreplaceable,  ///< what is there may never be replaced
    targetUnmovable,      ///< the file system does not let the old tree be moved
    failed
};

/// Moves `tree` to `target`, where nothing or an empty directory must be: anything else is kept.
Placement placeNewTree(Entry tree, Entry target);

/// Moves `tree` to `target`, and a directory or regular file that is there to `tree`. They are
/// exchanged in one step; where the file system cannot do that, the old tree waits at `aside`, an
/// unused name beside the target, and is moved back when the new one cannot be moved in. It stays
/// at `aside` only where it can be moved no more. The directory of `tree` belongs to this process
/// alone. Never gives `targetExists`.
Placement replaceTree(Entry tree, Entry target, Entry aside);

/// Undoes the placement of the tree that is open as `descriptor`: moves it back to `tree`, and what
/// is there by now to `target`. An empty directory, which `wasEmptyDirectory` says was replaced, is
/// made anew. What others have put at `target` meanwhile stays there. Returns false when the old
/// tree could not be put back.
bool takeBackTree(Entry tree, Entry target, Entry aside, int descriptor, bool wasEmptyDirectory);

}  // namespace vesk::standin
