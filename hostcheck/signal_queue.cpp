// SPDX-License-Identifier: MIT
// Blocking signals and reading them from a descriptor.
#include "hostcheck/signal_queue.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace vesk::hostcheck {

SignalQueue::SignalQueue() {
    // Whoever ignores it, as the program's starter may, has no child to wait for.
    std::signal(SIGCHLD, SIG_DFL);
    sigset_t held;
    sigemptyset(&held);
    sigaddset(&held, SIGCHLD);
    sigprocmask(SIG_BLOCK, &held, &maskBefore_);
    descriptor_ = signalfd(-1, &held, SFD_NONBLOCK | SFD_CLOEXEC);
    if (descriptor_ == -1) throw std::system_error(errno, std::generic_category(), "signalfd");
}

void SignalQueue::take() const {
    signalfd_siginfo signal{};
    while (read(descriptor_, &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
    }
}

void SignalQueue::release() const {
    close(descriptor_);
    sigprocmask(SIG_SETMASK, &maskBefore_, nullptr);
}

const SignalQueue& signalQueue() {
    static const SignalQueue queue;
    return queue;
}

}  // namespace vesk::hostcheck
