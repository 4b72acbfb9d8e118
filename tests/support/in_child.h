// SPDX-License-Identifier: MIT
// Running a piece of a test in a child process, which it may end or leave in any state.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <functional>
#include <string>

namespace vesk::testing {

namespace in_child {

inline int reportEnd = -1;
inline std::string (*reportOfTermination)() = nullptr;

[[noreturn]] inline void finish(const std::string& report) {
    const bool written =
        write(reportEnd, report.data(), report.size()) == static_cast<ssize_t>(report.size());
    _exit(written ? 0 : 1);
}

// An exception must not make the child continue with the following tests.
inline std::string reportOf(const std::function<std::string()>& body) {
    try {
        return body();
    } catch (const std::exception& exception) {
        return std::string("child failed: ") + exception.what();
    }
}

inline std::string received(int end) {
    std::string text;
    char piece[4096];
    for (ssize_t n; (n = read(end, piece, sizeof piece)) > 0;)
        text.append(piece, static_cast<std::size_t>(n));
    return text;
}

}  // namespace in_child

/// Runs `body` in a child process and returns the text that it returned. What ends the child before
/// gives "child failed" and the wait status; an std::terminate, where `atTermination` is given,
/// what that returns.
inline std::string inChild(const std::function<std::string()>& body,
                           std::string (*atTermination)() = nullptr) {
    int ends[2];
    if (pipe(ends) != 0) return "child failed: pipe";
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        in_child::reportEnd = ends[1];
        in_child::reportOfTermination = atTermination;
        if (atTermination)
            std::set_terminate([] { in_child::finish(in_child::reportOfTermination()); });
        in_child::finish(in_child::reportOf(body));
    }
    close(ends[1]);
    std::string report = in_child::received(ends[0]);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return report;
    return "child failed: wait status " + std::to_string(status);
}

}  // namespace vesk::testing
