// SPDX-License-Identifier: MIT
// Choosing the explanation for a message.
#include "explanation/explanation.h"

#include <algorithm>

#include "explanation/make_explanation.h"
#include "explanation/text.h"
#include "explanation/unpack_explanation.h"

namespace vesk::explanation {

std::vector<std::string> explain(const FailedCall& call) {
    std::vector<std::string> lines = call.isMaking ? explainMaking(call) : explainUnpacking(call);
    constexpr std::size_t mostLines = 3;
    lines.resize(std::min(lines.size(), mostLines));
    for (std::string& line : lines)
        line = escaped(line);
    return lines;
}

}  // namespace vesk::explanation
