// SPDX-License-Identifier: MIT
// Finding out whether a call has kept a pointer that was passed to it.
#pragma once

#include <cstddef>
#include <functional>
#include <span>

namespace vesk::hostcheck {

/// Calls `use` with zeroed memory, which is unreadable afterwards, and tells whether this process
/// still holds a pointer into that memory. Searches all variables, allocated memory and the stacks
/// of other threads, but not shared or freed memory.
///
/// To be called in a separate process, since it uses SIGUSR1 and the signal stack. Throws
/// std::system_error when memory runs out.
bool keepsPointer(const std::function<void(std::span<char>)>& use);

}  // namespace vesk::hostcheck
