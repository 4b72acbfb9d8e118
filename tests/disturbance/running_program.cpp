// SPDX-License-Identifier: MIT
// Starting a program and waiting for its end.
#include "tests/disturbance/running_program.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

namespace vesk::testing {

namespace {

[[noreturn]] void become(const std::vector<std::string>& command, uid_t user, int errors) {
    std::vector<char*> words;
    for (const std::string& word : command)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    const bool isUser = user == 0 || (setgid(user) == 0 && setuid(user) == 0);
    if (isUser && dup2(errors, STDERR_FILENO) != -1) execvp(words[0], words.data());
    _exit(127);
}

}  // namespace

RunningProgram::RunningProgram(const std::vector<std::string>& command, uid_t user) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    process_ = fork();
    if (process_ == 0) become(command, user, ends[1]);
    close(ends[1]);
    errors_ = ends[0];
}

RunningProgram::RunningProgram(RunningProgram&& other) noexcept
    : process_(std::exchange(other.process_, -1)), errors_(std::exchange(other.errors_, -1)) {}

RunningProgram::~RunningProgram() {
    if (process_ != -1) end();
}

bool RunningProgram::isRunning() const {
    siginfo_t information{};
    waitid(P_PID, static_cast<id_t>(process_), &information, WEXITED | WNOHANG | WNOWAIT);
    return information.si_pid == 0;
}

ProgramEnd RunningProgram::end() {
    ProgramEnd result{-1, ""};
    char piece[4096];
    for (ssize_t n; (n = read(errors_, piece, sizeof piece)) > 0;)
        result.errors.append(piece, static_cast<std::size_t>(n));
    close(errors_);
    int status = 0;
    waitpid(std::exchange(process_, -1), &status, 0);
    if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
    return result;
}

}  // namespace vesk::testing
