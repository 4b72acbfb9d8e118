// SPDX-License-Identifier: MIT
// Why the stand-in host did not take an unpacked tree.
#pragma once

#include <string>
#include <vector>

#include "explanation/explanation.h"

namespace vesk::explanation {

/// As explain, for the messages of the host's about the destination.
std::vector<std::string> explainStaging(const FailedCall& call);

}  // namespace vesk::explanation
