// SPDX-License-Identifier: MIT
// Starting a program and waiting for its end.
#include "tests/disturbance/running_program.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

namespace vesk::testing {

namespace {

/// Makes every renameat2 of this process fail as on a file system that cannot exchange.
bool refuseExchange() {
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_renameat2, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{4, filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

[[noreturn]] void become(const std::vector<std::string>& command, Exchange exchange, uid_t user,
                         int errors) {
    std::vector<char*> words;
    for (const std::string& word : command)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    const bool isUser = user == 0 || (setgid(user) == 0 && setuid(user) == 0);
    const bool isReady = isUser && dup2(errors, STDERR_FILENO) != -1 &&
                         (exchange == Exchange::possible || refuseExchange());
    if (isReady) execv(words[0], words.data());
    _exit(127);
}

}  // namespace

RunningProgram::RunningProgram(const std::vector<std::string>& command, Exchange exchange,
                               uid_t user) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    process_ = fork();
    if (process_ == 0) become(command, exchange, user, ends[1]);
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
