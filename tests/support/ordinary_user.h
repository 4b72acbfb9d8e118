// SPDX-License-Identifier: MIT
// Running a piece of a test in a child process, as a user to whom file permissions apply.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <functional>
#include <string>

namespace vesk::testing {

/// Runs `body` in a child process after `become` has changed its user. Returns the text of `body`,
/// or a text that begins with "child failed" when either failed, threw or died.
inline std::string inChildThatBecame(const std::function<bool()>& become,
                                     const std::function<std::string()>& body) {
    int ends[2];
    if (pipe(ends) != 0) return "child failed: pipe";
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        std::string result;
        try {
            result = become() ? body() : "child failed: it cannot become that";
        } catch (const std::exception& exception) {
            result = std::string("child failed: ") + exception.what();
        }
        const bool written =
            write(ends[1], result.data(), result.size()) == static_cast<ssize_t>(result.size());
        _exit(written ? 0 : 1);
    }
    close(ends[1]);
    std::string result;
    char piece[4096];
    for (ssize_t n; (n = read(ends[0], piece, sizeof piece)) > 0;) {
        result.append(piece, static_cast<std::size_t>(n));
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return "child failed: it died";
    return result;
}

/// Runs `body` in a child process as an ordinary user: as the user 65534 when this process is root,
/// otherwise as the same user. Files that the body needs must be open to everyone.
inline std::string asOrdinaryUser(const std::function<std::string()>& body) {
    return inChildThatBecame(
        [] { return geteuid() != 0 || (setgid(65534) == 0 && setuid(65534) == 0); }, body);
}

}  // namespace vesk::testing
