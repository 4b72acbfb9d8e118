// SPDX-License-Identifier: MIT
// What is said of an archive besides that it was made or unpacked.
#pragma once

#include <string>
#include <vector>

#include "commandline/archive_work.h"

namespace vesk::commandline {

/// Returns a line for everything that is not in the new archive or the unpacked tree as it was in
/// the source, or that will not be unpacked again. None is the usual case.
std::vector<std::string> remarksOn(const Outcome& outcome);

}  // namespace vesk::commandline
