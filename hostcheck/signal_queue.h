// SPDX-License-Identifier: MIT
// Signals that wait until they are asked for.
#pragma once

#include <csignal>

namespace vesk::hostcheck {

/// Holds back SIGCHLD from its making on, so that an end of a child cannot be missed between a look
/// and a wait. There is one in the program.
class SignalQueue {
public:
    /// Throws std::system_error when signals cannot be read.
    SignalQueue();
    SignalQueue(const SignalQueue&) = delete;
    SignalQueue& operator=(const SignalQueue&) = delete;
    ~SignalQueue() = default;

    /// A descriptor that is ready for reading while a signal waits.
    int descriptor() const { return descriptor_; }

    /// Takes the signals that wait.
    void take() const;

    /// Gives this process, a child, the signals as the program got them at its start.
    void release() const;

private:
    sigset_t maskBefore_{};
    int descriptor_ = -1;
};

/// The program's queue, made by the first call.
const SignalQueue& signalQueue();

}  // namespace vesk::hostcheck
