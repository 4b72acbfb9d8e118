// SPDX-License-Identifier: MIT
// Why an archive was not made.
#pragma once

#include <string>
#include <vector>

#include "explanation/explanation.h"

namespace vesk::explanation {

/// Like `explain`, for a failed call that makes an archive.
std::vector<std::string> explainMaking(const FailedCall& call);

}  // namespace vesk::explanation
