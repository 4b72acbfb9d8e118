// SPDX-License-Identifier: MIT
// A program that runs at the same time as the test.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace vesk::testing {

/// How a program ended, and what it wrote to standard error.
struct ProgramEnd {
    int status;  ///< the exit status; -1 when a signal ended it
    std::string errors;
};

/// Starts `command`, whose first word is a program's path or name, on construction. It runs as the
/// user with the id `user` unless that is 0.
class RunningProgram {
public:
    explicit RunningProgram(const std::vector<std::string>& command, uid_t user = 0);
    RunningProgram(RunningProgram&& other) noexcept;
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;
    /// Waits for the end.
    ~RunningProgram();

    bool isRunning() const;

    /// Waits for the end and returns it.
    ProgramEnd end();

private:
    pid_t process_ = -1;
    int errors_ = -1;
};

}  // namespace vesk::testing
