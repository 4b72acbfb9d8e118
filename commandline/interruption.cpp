// SPDX-License-Identifier: MIT
// Noting signals, and ending by them. The handlers use only async-signal-safe functions.
#include "commandline/interruption.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>

#include "commandline/last_words.h"

namespace vesk::commandline {

namespace {

// Well below half a second, so that the process ends within that time: the system needs some of it
// to free much memory.
constexpr timespec patience{0, 300'000'000};

// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables): a handler has no other way
std::atomic<int> notedSignal = 0;
std::atomic<bool> workIsOver = false;
// Written before the first handler is installed.
sigset_t handledSignals;
timer_t patienceTimer;
bool hasTimer = false;
bool alarmsAreHeeded = true;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
              "a signal handler may write nothing else");

[[noreturn]] void endBy(int number) {
    struct sigaction ordinary {};
    ordinary.sa_handler = SIG_DFL;
    sigaction(number, &ordinary, nullptr);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, number);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    pthread_kill(pthread_self(), number);
    _exit(128 + number);  // the default action does not end a container's first process
}

[[noreturn]] void endAtOnceBy(int number) {
    sayLastWordsAtOnce();
    endBy(number);
}

/// Returns whether a signal will tell the process when its time to clean up is over.
bool startPatience() {
    const itimerspec once{{0, 0}, patience};
    return hasTimer && timer_settime(patienceTimer, 0, &once, nullptr) == 0;
}

void note(int number) {
    int none = 0;
    if (!notedSignal.compare_exchange_strong(none, number)) endAtOnceBy(number);
    if (workIsOver) endBy(number);
    if (!startPatience()) endAtOnceBy(number);
}

extern "C" void heedSignal(int number, siginfo_t* information, void* /*context*/) {
    const int error = errno;
    if (number == SIGALRM && information->si_code == SI_TIMER) endAtOnceBy(notedSignal);
    if (number != SIGALRM || alarmsAreHeeded) note(number);
    errno = error;
}

/// Every signal that ends a process unless it is handled. Excluded are those for the process's own
/// errors, and those that are ignored for good reason (see prepareStandardStreams).
sigset_t endingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2, SIGALRM, SIGXCPU,
                             SIGVTALRM, SIGPROF, SIGIO, SIGPWR,
#ifdef SIGSTKFLT
                             SIGSTKFLT
#endif
         })
        sigaddset(&signals, number);
    for (int number = SIGRTMIN; number <= SIGRTMAX; ++number)
        sigaddset(&signals, number);
    return signals;
}

bool isUnheard(int number, const sigset_t& blocked) {
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    return action.sa_handler == SIG_IGN || sigismember(&blocked, number) == 1;
}

void chooseSignals() {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    handledSignals = endingSignals();
    alarmsAreHeeded = !isUnheard(SIGALRM, blocked);
    for (int number = 1; number <= SIGRTMAX; ++number) {
        // The timer needs its signal in any case.
        if (number != SIGALRM && isUnheard(number, blocked)) sigdelset(&handledSignals, number);
    }
}

void installHandler() {
    struct sigaction action {};
    action.sa_sigaction = heedSignal;
    action.sa_mask = handledSignals;
    // Without SA_RESTART the module's reads and writes could fail before the work is stopped.
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    for (int number = 1; number <= SIGRTMAX; ++number) {
        if (sigismember(&handledSignals, number) == 1) sigaction(number, &action, nullptr);
    }
}

void* receiveSignals(void* /*nothing*/) {
    pthread_sigmask(SIG_UNBLOCK, &handledSignals, nullptr);
    for (;;)
        pause();
}

bool startReceiver() {
    constexpr std::size_t enoughForTheHandler = 256UL * 1024;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, enoughForTheHandler);
    pthread_t receiver{};
    const int error = pthread_create(&receiver, &attributes, receiveSignals, nullptr);
    pthread_attr_destroy(&attributes);
    return error == 0;
}

/// Asking the system for pending signals at each of a million calls would slow the work. So after
/// the first calls it is asked at most once per millisecond.
bool isTimeToReceive() {
    using Clock = std::chrono::steady_clock;
    constexpr int firstCalls = 64;
    static int calls = 0;
    static Clock::time_point last;
    if (calls < firstCalls) {
        ++calls;
        return true;
    }
    const Clock::time_point now = Clock::now();
    if (now - last < std::chrono::milliseconds(1)) return false;
    last = now;
    return true;
}

/// Lets this thread receive the signals that were sent to it alone.
void receiveOwnSignals() {
    sigset_t pending;
    sigpending(&pending);
    sigandset(&pending, &pending, &handledSignals);
    if (sigisemptyset(&pending) != 0) return;
    pthread_sigmask(SIG_UNBLOCK, &pending, nullptr);
    pthread_sigmask(SIG_BLOCK, &pending, nullptr);
}

}  // namespace

void noteInterruptions() {
    chooseSignals();
    sigevent atTheEnd{};
    atTheEnd.sigev_notify = SIGEV_SIGNAL;
    atTheEnd.sigev_signo = SIGALRM;
    hasTimer = timer_create(CLOCK_MONOTONIC, &atTheEnd, &patienceTimer) == 0;
    installHandler();
    // A new thread inherits the blocked signals of its creator.
    pthread_sigmask(SIG_BLOCK, &handledSignals, nullptr);
    if (!startReceiver()) pthread_sigmask(SIG_UNBLOCK, &handledSignals, nullptr);
}

void throwIfInterrupted() {
    if (isTimeToReceive()) receiveOwnSignals();
    if (notedSignal != 0) throw Interruption{};
}

void endIfInterrupted() {
    workIsOver = true;
    receiveOwnSignals();
    if (const int number = notedSignal; number != 0) endBy(number);
}

}  // namespace vesk::commandline
