// SPDX-License-Identifier: MIT
// Compares what an unpacking call did with what it must do.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tests/sandbox/findings.h"
#include "tests/sandbox/unpack_model.h"

namespace vesk::testing {

/// The result of a call.
struct UnpackResult {
    std::optional<std::string> message;  // of the pending exception; nothing after a success
    /// The absolute paths of the left-overs that the stand-in has reported.
    std::vector<std::string> toldLeftovers;
    Snapshot after;
};

/// Adds every fault to `findings`, with `title` and the scene before the details.
void judgeUnpack(const UnpackCase& unpackCase, const UnpackScene& scene, const UnpackResult& result,
                 const std::string& title, Findings& findings);

}  // namespace vesk::testing
