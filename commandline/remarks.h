// SPDX-License-Identifier: MIT
// What is said of an archive beyond the fact that it was made or unpacked.
#pragma once

#include <string>
#include <vector>

#include "commandline/archive_work.h"

namespace vesk::commandline {

/// Returns a line for everything that the new archive or the unpacked tree does not hold as its
/// source did, or that will be refused when it is unpacked. Usually there is none.
std::vector<std::string> remarksOn(const Outcome& outcome);

}  // namespace vesk::commandline
