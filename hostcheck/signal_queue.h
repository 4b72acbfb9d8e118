// SPDX-License-Identifier: MIT
// Signals that are held back until the program asks for them.
#pragma once

#include <csignal>

namespace vesk::hostcheck {

/// Thrown when one of the waiting signals asks the program to end.
struct Interrupted {
    int signal;
};

/// From its construction on, holds back SIGCHLD and those of SIGINT, SIGTERM and SIGHUP that are
/// not ignored. So the end of a child cannot be missed between a check and a wait, and the program
/// can clean up before it ends. The program has one queue.
class SignalQueue {
public:
    /// Throws std::system_error when signals cannot be read.
    SignalQueue();
    SignalQueue(const SignalQueue&) = delete;
    SignalQueue& operator=(const SignalQueue&) = delete;
    ~SignalQueue() = default;

    /// A descriptor that is readable while a signal waits.
    int descriptor() const { return descriptor_; }

    /// Takes the waiting signals. Throws Interrupted when one of them asks the program to end.
    void take() const;

    /// Called in a child: restores the signals to their state at the start of the program.
    void release() const;

private:
    sigset_t maskBefore_{};
    int descriptor_ = -1;
};

/// The program's queue, made by the first call.
const SignalQueue& signalQueue();

/// Ends the program by `signal`, which had been held back, as if there were no queue.
[[noreturn]] void endBy(int signal);

}  // namespace vesk::hostcheck
