// SPDX-License-Identifier: MIT
// The C library's file functions of a test executable, and so of the libraries that it loads. They
// record the file operations of the module and fail on demand.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace vesk::testing {

/// The fault of a call: `error` is its errno. When that is 0, the call transfers about half of the
/// bytes.
struct FileFault {
    std::size_t number;  ///< of the call, counted from 1; none fails with 0
    int error;
};

/// The calls of the module while faults were armed: a line for each call with the function and the
/// path. Paths are relative to the given root, which is called ROOT; the staging directory is
/// called STAGING.
struct FileReport {
    std::vector<std::string> calls;
    bool fired = false;
};

/// From now on the module's file calls are recorded, and one of them fails. `before`, if given, is
/// called with each line before the call is made. Works only while a single thread makes calls.
void armFileFaults(const std::string& root, FileFault fault,
                   std::function<void(const std::string& call)> before = nullptr);

/// Ends the effect of armFileFaults.
FileReport disarmFileFaults();

}  // namespace vesk::testing
