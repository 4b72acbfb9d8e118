// SPDX-License-Identifier: MIT
// Deleting what an extraction leaves: a tree that is not wanted, or one that was replaced.
#pragma once

namespace vesk::standin {

/// What is left of a tree that was to be deleted.
enum class Rest { nothing, something, mountedPlace };

/// Deletes everything below the open directory `top`, which only this process uses. Returns what is
/// left.
///
/// Permissions of directories that belong to this user are no obstacle. What is mounted below stays
/// as it is. Needs no memory but the stack's, at most as many descriptors as it can get, and any
/// depth: directories that lie too deep are moved to `top` first, under numbers for names.
Rest deleteContents(int top) noexcept;

}  // namespace vesk::standin
