// SPDX-License-Identifier: MIT
// The file operations of the module's calls, and how each ends when it fails. The standard library
// makes them, so that each library that the tests know has a list of its own; the messages are the
// same.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace vesk::testing {

/// A file operation and the message when it fails; none when its failure is of no account.
struct Step {
    const char* call;
    const char* message;
};

/// Steps with the same call are in the order of the calls; the last stands for all further ones.
struct Scenario {
    const char* name;
    const char* from;
    const char* to;
    bool makes;
    std::vector<Step> steps;
};

inline std::ostream& operator<<(std::ostream& out, const Scenario& scenario) {
    return out << scenario.name;
}

/// Returns the scenarios with the operations of the standard library in use.
const std::vector<Scenario>& scenarios();

/// The functions with which it reads a file and opens a directory.
extern const char* const readingFunction;
extern const char* const directoryFunction;

/// Tells whether that library goes on, with the right bytes, after a `call` that moves bytes has
/// failed with `error`, or has moved only half of them where that is 0.
bool isRetried(const std::string& call, int error);

}  // namespace vesk::testing
