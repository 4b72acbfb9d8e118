// SPDX-License-Identifier: MIT
// Puts a finished tree at its final path. At every moment, even if the process is killed, that path
// names nothing, the whole old tree or the whole new one.
#pragma once

#include "standinhost/open_directory.h"

namespace vesk::standin {

enum class Placement {
    done,
    targetExists,         ///< something is there that was not to be replaced
    targetIrreplaceable,  ///< something is there that may never be replaced
    targetUnmovable,      ///< the file system does not allow moving the old tree
    failed
};

/// Moves `tree` to `target`, if nothing or an empty directory is there; keeps anything else.
Placement placeNewTree(Entry tree, Entry target);

/// Moves `tree` to `target`, and a directory or regular file that is there to `tree`. Never returns
/// `targetExists`.
///
/// The two are exchanged in one step. Where the file system cannot do that, the old tree waits at
/// `aside`, an unused name beside the target, and is moved back if the new one cannot be moved in.
/// It stays at `aside` only if it cannot be moved from there. Only this process uses the directory
/// of `tree`.
Placement replaceTree(Entry tree, Entry target, Entry aside);

/// Undoes the placement of the tree that is open as `descriptor`: moves it back to `tree`, and the
/// old tree from there to `target`. If `wasEmptyDirectory` says that an empty directory was
/// replaced, makes a new one. What others have put at `target` meanwhile stays there; that counts
/// as success. Returns false when an error kept the old tree from its place.
bool takeBackTree(Entry tree, Entry target, Entry aside, int descriptor, bool wasEmptyDirectory);

}  // namespace vesk::standin
