// SPDX-License-Identifier: MIT
// The child process and its report through a pipe.
#include "tests/faults/in_child.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

namespace vesk::testing {

namespace {

int reportEnd = -1;
std::string (*reportOfTermination)() = nullptr;

[[noreturn]] void finish(const std::string& report) {
    const bool written =
        write(reportEnd, report.data(), report.size()) == static_cast<ssize_t>(report.size());
    _exit(written ? 0 : 1);
}

// An exception must not make the child continue with the following tests.
std::string reportOf(const std::function<std::string()>& body) {
    try {
        return body();
    } catch (const std::exception& exception) {
        return std::string("child failed: ") + exception.what();
    }
}

std::string received(int end) {
    std::string text;
    char piece[4096];
    for (ssize_t n; (n = read(end, piece, sizeof piece)) > 0;)
        text.append(piece, static_cast<std::size_t>(n));
    return text;
}

}  // namespace

std::string inChild(const std::function<std::string()>& body, std::string (*atTermination)()) {
    int ends[2];
    if (pipe(ends) != 0) return "child failed: pipe";
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        reportEnd = ends[1];
        reportOfTermination = atTermination;
        if (atTermination) std::set_terminate([] { finish(reportOfTermination()); });
        finish(reportOf(body));
    }
    close(ends[1]);
    std::string report = received(ends[0]);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return report;
    return "child failed: wait status " + std::to_string(status);
}

}  // namespace vesk::testing
