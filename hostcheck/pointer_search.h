// SPDX-License-Identifier: MIT
// Finding out whether a call has kept a pointer that it was given.
#pragma once

#include <cstddef>
#include <functional>
#include <span>

namespace vesk::hostcheck {

/// Calls `use` with zeroed memory that cannot be read any more afterwards, and tells whether this
/// process still holds a pointer into it: in a variable of whatever kind, in allocated memory or on
/// another thread's stack, but not in memory that is shared or has been freed. Meant for a process
/// of its own, as it takes SIGUSR1 and the signal stack for itself. Throws std::system_error when
/// memory lacks.
bool keepsPointer(const std::function<void(std::span<char>)>& use);

}  // namespace vesk::hostcheck
