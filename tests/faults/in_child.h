// SPDX-License-Identifier: MIT
// Running part of a test in a child process, which it may end or leave in any state.
#pragma once

#include <functional>
#include <string>

namespace vesk::testing {

/// Runs `body` in a child process and returns the text that it returned. When something else ends
/// the child, returns "child failed" and the wait status. When std::terminate ends it and
/// `atTermination` is given, returns the result of that.
std::string inChild(const std::function<std::string()>& body,
                    std::string (*atTermination)() = nullptr);

}  // namespace vesk::testing
