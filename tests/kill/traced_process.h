// SPDX-License-Identifier: MIT
// A program that is run and, at a chosen moment, killed.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace vesk::testing {

/// Whether the system can exchange two directories in one step, or is made to refuse it.
enum class Exchange { possible, refused };

/// How a process ended: its exit status, or -1 when it was killed.
struct ProcessEnd {
    int status = -1;
    long stops = 0;  ///< system call stops until then, two for each call
};

/// Runs `command`, whose first word is the program's path, and kills it at its system call stop
/// number `stop`, counted from 1: the odd ones lie before a call, the even ones after it. With 0,
/// or when there are fewer, it runs to its end.
ProcessEnd runUntilStop(const std::vector<std::string>& command, Exchange exchange, long stop);

/// Runs `command` and kills it when `time` has passed, unless it has ended by then.
ProcessEnd runForTime(const std::vector<std::string>& command, std::chrono::nanoseconds time);

/// Runs `command` to its end.
ProcessEnd run(const std::vector<std::string>& command);

}  // namespace vesk::testing
