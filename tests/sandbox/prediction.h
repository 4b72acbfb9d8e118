// SPDX-License-Identifier: MIT
// How a call must end, as far as it is certain.
#pragma once

#include <string>

namespace vesk::testing {

enum class Ending { success, failure, either };

struct Prediction {
    Ending ending;
    std::string reason;
    std::string message = "";  // the only one that fits; empty where several may
};

}  // namespace vesk::testing
