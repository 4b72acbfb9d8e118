// SPDX-License-Identifier: MIT
// The two ways in which a routine of this module fails. Each routine keeps to one of them.
#pragma once

#include <string>

#include "module/host/host_runtime.h"

namespace vesk::io::archives {

/// Raises an `IOException` with `message` in the host and returns false. The way of the creation
/// side and of the file reader: callers test the result or ask Vesk_hasPendingError.
inline bool raiseFailure(const char* message) {
    Vesk_raise("IOException", message);
    return false;
}

/// Replaces the whole of `errorText` by `message` and returns false. The way of the extraction
/// side: the exported function raises the text.
inline bool reportFailure(std::string& errorText, const char* message) {
    errorText = message;
    return false;
}

}  // namespace vesk::io::archives
