// SPDX-License-Identifier: MIT
// Running a trial in its own process.
#pragma once

#include <functional>
#include <optional>

#include "hostcheck/requirement.h"

namespace vesk::hostcheck {

/// Runs `body` in a child process. Returns the deviation that it threw, or nothing when it
/// returned. Any other exception, a signal, an exit and running for more than `seconds` are
/// deviations, too.
///
/// The child's standard output goes to standard error. The child has its own process group, which
/// is killed afterwards, so processes that the library started neither delay the result nor stay
/// behind. Throws std::system_error when no child can be started.
std::optional<Deviation> deviationInChild(const std::function<void()>& body, unsigned seconds);

}  // namespace vesk::hostcheck
