// SPDX-License-Identifier: MIT
// Choosing the explanation for a message.
#include "explanation/explanation.h"

#include <algorithm>

#include "explanation/make_explanation.h"
#include "explanation/unpack_explanation.h"

namespace vesk::explanation {

std::vector<std::string> explain(const FailedCall& call) {
    std::vector<std::string> lines = call.isMaking ? explainMaking(call) : explainUnpacking(call);
    constexpr std::size_t mostLines = 3;
    lines.resize(std::min(lines.size(), mostLines));
    return lines;
}

}  // namespace vesk::explanation
