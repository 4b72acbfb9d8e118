// SPDX-License-Identifier: MIT
// Blocking signals and reading them from a descriptor.
#include "hostcheck/signal_queue.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace vesk::hostcheck {

namespace {

bool isIgnored(int signal) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

}  // namespace

SignalQueue::SignalQueue() {
    // The parent process may have set SIGCHLD to be ignored: then children cannot be waited for.
    std::signal(SIGCHLD, SIG_DFL);
    sigset_t held;
    sigemptyset(&held);
    sigaddset(&held, SIGCHLD);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        if (!isIgnored(signal)) sigaddset(&held, signal);
    pthread_sigmask(SIG_BLOCK, &held, &maskBefore_);
    descriptor_ = signalfd(-1, &held, SFD_NONBLOCK | SFD_CLOEXEC);
    if (descriptor_ == -1) throw std::system_error(errno, std::generic_category(), "signalfd");
}

void SignalQueue::take() const {
    signalfd_siginfo signal{};
    while (read(descriptor_, &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
        const int number = static_cast<int>(signal.ssi_signo);
        if (number != SIGCHLD) throw Interrupted{number};
    }
}

void SignalQueue::release() const {
    close(descriptor_);
    pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
}

const SignalQueue& signalQueue() {
    static const SignalQueue queue;
    return queue;
}

void endBy(int signal) {
    std::signal(signal, SIG_DFL);
    sigset_t released;
    sigemptyset(&released);
    sigaddset(&released, signal);
    pthread_sigmask(SIG_UNBLOCK, &released, nullptr);
    kill(getpid(), signal);
    std::abort();
}

}  // namespace vesk::hostcheck
