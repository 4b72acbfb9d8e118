// SPDX-License-Identifier: MIT
// Noting signals.
#include "commandline/interruption.h"

#include <atomic>
#include <csignal>
#include <initializer_list>

namespace vesk::commandline {

namespace {

// Any thread of the process may be the one that receives the signal.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): a handler has no other way
std::atomic<int> notedSignal = 0;
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may write nothing else");

extern "C" void noteSignal(int signal) {
    notedSignal = signal;
}

}  // namespace

void noteInterruptions() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler == SIG_IGN) continue;
        action = {};
        action.sa_handler = noteSignal;
        // Without SA_RESTART the module's reads and writes could fail before it can be stopped.
        action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
        sigaction(signal, &action, nullptr);
    }
}

void throwIfInterrupted() {
    if (const int signal = notedSignal; signal != 0) throw Interruption{signal};
}

}  // namespace vesk::commandline
