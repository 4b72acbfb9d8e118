// SPDX-License-Identifier: MIT
// The file operations of the module's calls, and the message of each when it fails. The standard
// library makes the operations, so each library has its own list; the messages are the same.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace vesk::testing {

/// A file operation and the message when it fails; null when its failure has no effect.
struct Step {
    const char* call;
    const char* message;
};

/// Steps with the same call are in the order of the calls. The last one stands for all further
/// ones.
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

/// Returns the scenarios with the operations of the current standard library.
const std::vector<Scenario>& scenarios();

/// The functions with which that library reads a file and opens a directory.
extern const char* const readingFunction;
extern const char* const directoryFunction;

/// Tells whether that library continues, with the right bytes, after a `call` that moves bytes has
/// failed with `error`, or has moved only half of them when that is 0.
bool isRetried(const std::string& call, int error);

}  // namespace vesk::testing
