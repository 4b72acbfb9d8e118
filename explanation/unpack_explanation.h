// SPDX-License-Identifier: MIT
// Why an archive was not unpacked.
#pragma once

#include <string>
#include <vector>

#include "explanation/explanation.h"

namespace vesk::explanation {

/// Like `explain`, for a failed call that unpacks an archive.
std::vector<std::string> explainUnpacking(const FailedCall& call);

}  // namespace vesk::explanation
