// SPDX-License-Identifier: MIT
// How a fuzz target reports a broken promise: by ending the program, which the fuzzer notices.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace vesk::fuzzing {

/// Ends the program with `promise` and `detail` on standard error unless the promise was kept.
inline void require(bool kept, const char* promise, const std::string& detail = {}) {
    if (kept) return;
    std::fprintf(stderr, "broken promise: %s: %s\n", promise, detail.c_str());
    std::abort();
}

}  // namespace vesk::fuzzing
