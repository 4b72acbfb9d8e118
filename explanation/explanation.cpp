// SPDX-License-Identifier: MIT
// Choosing the explanation for a message.
#include "explanation/explanation.h"

#include <algorithm>

#include "explanation/make_explanation.h"
#include "explanation/path_state.h"
#include "explanation/text.h"
#include "explanation/unpack_explanation.h"

namespace vesk::explanation {

namespace {

/// Most of what the module and the explanation do needs a descriptor.
std::vector<std::string> explainDescriptors() {
    const std::string trouble = descriptorTrouble();
    if (trouble.empty()) return {};
    return {trouble, "to lift that limit: ulimit -n 1024"};
}

}  // namespace

std::vector<std::string> explain(const FailedCall& call) {
    std::vector<std::string> lines = call.isMaking ? explainMaking(call) : explainUnpacking(call);
    if (lines.empty()) lines = explainDescriptors();
    constexpr std::size_t mostLines = 3;
    lines.resize(std::min(lines.size(), mostLines));
    for (std::string& line : lines)
        line = escaped(line);
    return lines;
}

}  // namespace vesk::explanation
