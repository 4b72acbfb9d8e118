// SPDX-License-Identifier: MIT
// The C library's file functions of a test executable, and so of the libraries that it loads: they
// record what the module asks of the file system, and fail on demand.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace vesk::testing {

/// What happens to a call instead of what was asked for: `error` is its errno or, when that is 0,
/// it transfers about half of the bytes.
struct FileFault {
    std::size_t number;  ///< of the call, counted from 1; none fails with 0
    int error;
};

/// What the module called while faults were armed: a line for each call with the function and the
/// path. Paths are relative to the root that was given, itself called ROOT; the
/// staging directory is called STAGING.
struct FileReport {
    std::vector<std::string> calls;
    bool fired = false;
};

/// From now on the module's file calls are recorded, and one of them fails. `before`, where given,
/// is called with each line before the call is made. Only for as long as one thread makes calls.
void armFileFaults(const std::string& root, FileFault fault,
                   std::function<void(const std::string& call)> before = nullptr);

/// Ends what armFileFaults began.
FileReport disarmFileFaults();

}  // namespace vesk::testing
