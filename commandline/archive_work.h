// SPDX-License-Identifier: MIT
// Carries out one request: one call of the module, watched through its calls of the runtime.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <variant>

#include "commandline/arguments.h"
#include "commandline/source_walk.h"
#include "standinhost/standin_host.h"

namespace vesk::commandline {

/// What was done by a request that succeeded.
struct Outcome {
    Verb verb;
    std::uint64_t entries;
    /// The archive's size in bytes; nothing if it is no regular file, such as /dev/null.
    std::optional<std::uintmax_t> archiveBytes;
    std::chrono::duration<double> time;
    /// Empty if the user wants nothing said. After unpacking, only the executables are set.
    SourceFindings findings;
};

/// Carries out the request. Returns the exception that the module raised, if it raised one. Throws
/// ModuleError, Interruption and whatever leaves the module; no staging directory is left then.
std::variant<Outcome, vesk::standin::PendingError> carryOut(const Arguments& arguments);

}  // namespace vesk::commandline
