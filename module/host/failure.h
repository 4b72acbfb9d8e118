// SPDX-License-Identifier: MIT
// The two ways in which a routine of the module reports a failure. Each routine uses only one.
#pragma once

#include <string>

#include "module/host/host_runtime.h"

namespace vesk::io::archives {

/// Raises an `IOException` with `message` in the runtime and returns false. Used when making an
/// archive, when reading a file, and by the exported functions and their steps: callers test the
/// result or ask Vesk_hasPendingError.
inline bool raiseFailure(const char* message) {
    Vesk_raise("IOException", message);
    return false;
}

/// Replaces all of `errorText` by `message` and returns false. Used when decoding and extracting an
/// archive that has been read: the exported function raises the text.
inline bool reportFailure(std::string& errorText, const char* message) {
    errorText = message;
    return false;
}

}  // namespace vesk::io::archives
