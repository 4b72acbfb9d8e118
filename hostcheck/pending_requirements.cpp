// SPDX-License-Identifier: MIT
// The requirements for Vesk_raise and Vesk_hasPendingError.
//
// The recorded class and text cannot be read back through the nine functions.
#include <array>
#include <cstring>
#include <future>
#include <span>
#include <string>

#include "hostcheck/pointer_search.h"
#include "hostcheck/requirement.h"
#include "hostcheck/wording.h"

namespace vesk::hostcheck {

namespace {

constexpr const char* exceptionClass = "IOException";

/// Calls Vesk_raise and ignores exceptions: that the call returns is a separate requirement.
void raise(const Trial& trial, const char* className, const char* message) {
    try {
        trial.runtime.raise(className, message);
    } catch (...) {
    }
}

void expectPending(const Trial& trial) {
    expect(trial.runtime.hasPendingError() != 0, "a pending exception", "none");
}

void raiseReturns(const Trial& trial) {
    trial.runtime.raise(exceptionClass, "Archive already exists");
}

void raiseNeedsItsStringsNoLonger(const Trial& trial) {
    const bool keeps = keepsPointer([&](std::span<char> memory) {
        char* const message = std::strcpy(memory.data(), exceptionClass) + 64;
        raise(trial, memory.data(), std::strcpy(message, "Cannot read file: photos/summer.jpg"));
    });
    trial.runtime.hasPendingError();
    expect(!keeps, "no pointer to them that is kept", "one");
}

void raiseTakesAnEmptyMessage(const Trial& trial) {
    raise(trial, exceptionClass, "");
    expectPending(trial);
}

void raiseTakesAnyPath(const Trial& trial) {
    std::string message = "Cannot read file: ";
    for (int value = 1; value < 256; ++value)
        message += static_cast<char>(value);
    message.append(8192, 'x');
    raise(trial, exceptionClass, message.c_str());
    expectPending(trial);
}

void pendingIsZeroAtFirst(const Trial& trial) {
    const int answer = trial.runtime.hasPendingError();
    expect(answer == 0, "0", std::to_string(answer));
}

void pendingIsNonzeroAfterRaise(const Trial& trial) {
    raise(trial, exceptionClass, "Archive source does not exist");
    for (const char* which : {"first", "second", "third"}) {
        expect(trial.runtime.hasPendingError() != 0, "nonzero",
               std::string("0 when asked for the ") + which + " time");
    }
}

/// Not needed by a runtime that calls methods on one thread only.
void pendingIsOneThreadsOwn(const Trial& trial) {
    raise(trial, exceptionClass, "Cannot write archive");
    const int answer = std::async(std::launch::async, trial.runtime.hasPendingError).get();
    expect(answer == 0, "0 on a thread that has raised nothing", std::to_string(answer));
}

constexpr std::array<Requirement, 7> requirements = {{
    {Weight::requirement, "Vesk_raise", "returns to its caller", raiseReturns},
    {Weight::requirement, "Vesk_raise", "needs its strings no longer once it has returned",
     raiseNeedsItsStringsNoLonger},
    {Weight::requirement, "Vesk_raise", "records an exception with an empty message",
     raiseTakesAnEmptyMessage},
    {Weight::requirement, "Vesk_raise", "takes a message with a path of any bytes and length",
     raiseTakesAnyPath},
    {Weight::requirement, "Vesk_hasPendingError", "is zero before anything was raised",
     pendingIsZeroAtFirst},
    {Weight::requirement, "Vesk_hasPendingError", "is nonzero after a raise, however often asked",
     pendingIsNonzeroAfterRaise},
    {Weight::advice, "Vesk_hasPendingError", "answers for the calling thread alone",
     pendingIsOneThreadsOwn},
}};

}  // namespace

std::span<const Requirement> pendingRequirements() {
    return requirements;
}

}  // namespace vesk::hostcheck
