// SPDX-License-Identifier: MIT
// Signals that wait until they are asked for.
#pragma once

#include <csignal>

namespace vesk::hostcheck {

/// Thrown when a signal that waited asks the program to end.
struct Interrupted {
    int signal;
};

/// Holds back, from its making on, SIGCHLD and those of SIGINT, SIGTERM and SIGHUP that are not
/// ignored. So an end of a child cannot be missed between a look and a wait, and what is to be
/// cleaned up is cleaned up before the program ends. There is one in the program.
class SignalQueue {
public:
    /// Throws std::system_error when signals cannot be read.
    SignalQueue();
    SignalQueue(const SignalQueue&) = delete;
    SignalQueue& operator=(const SignalQueue&) = delete;
    ~SignalQueue() = default;

    /// A descriptor that is ready for reading while a signal waits.
    int descriptor() const { return descriptor_; }

    /// Takes the signals that wait. Throws Interrupted when one of them is to end the program.
    void take() const;

    /// Gives this process, a child, the signals as the program got them at its start.
    void release() const;

private:
    sigset_t maskBefore_{};
    int descriptor_ = -1;
};

/// The program's queue, made by the first call.
const SignalQueue& signalQueue();

/// Ends the program by `signal`, one that waited, as it would have ended without a queue.
[[noreturn]] void endBy(int signal);

}  // namespace vesk::hostcheck
