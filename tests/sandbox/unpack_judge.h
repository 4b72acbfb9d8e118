// SPDX-License-Identifier: MIT
// Holds what an unpacking call did against what it must do.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tests/sandbox/findings.h"
#include "tests/sandbox/unpack_model.h"

namespace vesk::testing {

/// What came of a call.
struct UnpackResult {
    std::optional<std::string> message;  // of the pending exception; nothing after a success
    /// The absolute paths of what the host has told it left behind.
    std::vector<std::string> toldLeftovers;
    Snapshot after;
};

/// Adds to `findings` what is wrong, with `title` and the scene before the details.
void judgeUnpack(const UnpackCase& unpackCase, const UnpackScene& scene, const UnpackResult& result,
                 const std::string& title, Findings& findings);

}  // namespace vesk::testing
