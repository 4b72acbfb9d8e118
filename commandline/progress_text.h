// SPDX-License-Identifier: MIT
// The live line's text.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "commandline/progress.h"

namespace vesk::commandline {

/// Returns the live line's text at `now` for work that began at `start`: the stage and how much of
/// it is done. If the stage's total is known, a bar, the percentage and the time it will probably
/// still take follow; otherwise the time taken so far. The text is ASCII. It leaves the last of
/// `columns` free, because some terminals wrap there. What does not fit is left out, the bar first.
std::string progressText(Moment moment, std::chrono::steady_clock::time_point start,
                         std::chrono::steady_clock::time_point now, std::size_t columns);

}  // namespace vesk::commandline
