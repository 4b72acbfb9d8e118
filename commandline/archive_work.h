// SPDX-License-Identifier: MIT
// One request carried out: one call of the module, watched from the host's side.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <variant>

#include "commandline/arguments.h"
#include "commandline/source_walk.h"
#include "standinhost/standin_host.h"

namespace vesk::commandline {

/// What was done, when it succeeded.
struct Outcome {
    Verb verb;
    std::uint64_t entries;
    /// The archive's size; nothing where it has none, as /dev/null.
    std::optional<std::uintmax_t> archiveBytes;
    std::chrono::duration<double> time;
    /// Nothing was looked for where the user wants nothing said. After an unpacking, the
    /// executables alone.
    SourceFindings findings;
};

/// Carries out the request. Returns the host exception that the module raised, if it raised one.
/// Throws ModuleError, Interruption and what leaves the module; no staging directory is left then.
std::variant<Outcome, vesk::standin::PendingError> carryOut(const Arguments& arguments);

}  // namespace vesk::commandline
