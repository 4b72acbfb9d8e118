// SPDX-License-Identifier: MIT
// Running a trial in a process of its own.
#pragma once

#include <functional>
#include <optional>

#include "hostcheck/requirement.h"

namespace vesk::hostcheck {

/// Runs `body` in a child process and returns the deviation that it threw; nothing when it
/// returned. An exception of another kind, a signal, an end of the process and `seconds` without an
/// end are deviations, too. What the child writes to standard output goes to standard error. It has
/// a process group of its own, and what still runs in it is killed afterwards: processes that the
/// library started neither hold the answer up nor stay behind. Throws std::system_error when there
/// can be no child.
std::optional<Deviation> deviationInChild(const std::function<void()>& body, unsigned seconds);

}  // namespace vesk::hostcheck
