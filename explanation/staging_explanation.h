// SPDX-License-Identifier: MIT
// Why the stand-in host could not put an unpacked tree in its place.
#pragma once

#include <string>
#include <vector>

#include "explanation/explanation.h"

namespace vesk::explanation {

/// Like `explain`, for the stand-in host's messages about the destination.
std::vector<std::string> explainStaging(const FailedCall& call);

}  // namespace vesk::explanation
