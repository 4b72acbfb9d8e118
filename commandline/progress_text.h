// SPDX-License-Identifier: MIT
// The live line's text.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "commandline/progress.h"

namespace vesk::commandline {

/// Returns what the live line says at `now` of work that began at `start`: the stage, how much of
/// it is done, and, where its total is known, a bar, the share and the time that the stage is
/// likely to take yet; else the time that the work has taken. It is ASCII and leaves the last of
/// `columns` free, in which some terminals wrap: what does not fit is left out, the bar first.
std::string progressText(Moment moment, std::chrono::steady_clock::time_point start,
                         std::chrono::steady_clock::time_point now, std::size_t columns);

}  // namespace vesk::commandline
