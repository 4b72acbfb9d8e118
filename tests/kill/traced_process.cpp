// SPDX-License-Identifier: MIT
// Processes under ptrace, and others.
#include "tests/kill/traced_process.h"

#include <errno.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <stddef.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

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

/// Starts `command`; the child calls `prepare` first and gives up where that fails.
template <typename Prepare>
pid_t start(const std::vector<std::string>& command, const Prepare& prepare) {
    std::vector<char*> words;
    for (const std::string& word : command)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    const pid_t child = fork();
    if (child != 0) return child;
    if (prepare()) execv(words[0], words.data());
    _exit(127);
}

int exitStatus(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void kill(pid_t child, int& status) {
    ::kill(child, SIGKILL);
    waitpid(child, &status, 0);
}

}  // namespace

ProcessEnd runUntilStop(const std::vector<std::string>& command, Exchange exchange, long stop) {
    const pid_t child = start(command, [exchange] {
        return ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 &&
               (exchange == Exchange::possible || refuseExchange());
    });
    int status = 0;
    waitpid(child, &status, 0);  // the stop after exec
    ProcessEnd end;
    while (WIFSTOPPED(status)) {
        if (stop != 0 && end.stops == stop) {
            kill(child, status);
            break;
        }
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        waitpid(child, &status, 0);
        if (WIFSTOPPED(status)) ++end.stops;
    }
    end.status = exitStatus(status);
    return end;
}

ProcessEnd runForTime(const std::vector<std::string>& command, std::chrono::nanoseconds time) {
    const pid_t child = start(command, [] { return true; });
    std::this_thread::sleep_for(time);
    int status = 0;
    kill(child, status);
    return {exitStatus(status), 0};
}

ProcessEnd run(const std::vector<std::string>& command) {
    const pid_t child = start(command, [] { return true; });
    int status = 0;
    waitpid(child, &status, 0);
    return {exitStatus(status), 0};
}

}  // namespace vesk::testing
