// SPDX-License-Identifier: MIT
// Running a piece of a test in a child process, which it may end or leave in any state.
#pragma once

#include <functional>
#include <string>

namespace vesk::testing {

/// Runs `body` in a child process and returns the text that it returned. What ends the child before
/// gives "child failed" and the wait status; an std::terminate, where `atTermination` is given,
/// what that returns.
std::string inChild(const std::function<std::string()>& body,
                    std::string (*atTermination)() = nullptr);

}  // namespace vesk::testing
