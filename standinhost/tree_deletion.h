// SPDX-License-Identifier: MIT
// Deleting what an extraction leaves: a tree that is not wanted, or one that was replaced.
#pragma once

namespace vesk::standin {

/// Deletes everything below the open directory `top`, which only this process uses. Returns whether
/// nothing is left.
///
/// Permissions of directories that belong to this user are no obstacle. What is mounted below stays
/// as it is. Needs no memory but the stack's, at most as many descriptors as it can get, and any
/// depth: directories that lie too deep are moved to `top` first, under numbers for names.
bool deleteContents(int top) noexcept;

}  // namespace vesk::standin
