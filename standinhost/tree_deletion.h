// SPDX-License-Identifier: MIT
// Deleting a tree that an extraction no longer needs: a failed one, or one that was replaced.
#pragma once

namespace vesk::standin {

/// What is left of a tree that was to be deleted.
enum class Rest { nothing, something, mountedPlace };

/// Deletes everything below the open directory `top`, which only this process uses. Returns what is
/// left.
///
/// Changes the permissions of directories where necessary, if they belong to this user. Leaves
/// alone what is mounted below. Allocates nothing, works with as few descriptors as it can get, and
/// at any depth: directories that lie too deep are first moved to `top`, with numbers as names.
Rest deleteContents(int top) noexcept;

}  // namespace vesk::standin
