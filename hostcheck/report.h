// SPDX-License-Identifier: MIT
// The report on a runtime library.
#pragma once

#include <filesystem>

namespace vesk::hostcheck {

/// What was found out about a library.
enum class Finding { allHold, someFail, functionsMissing };

/// Checks the runtime library at `library`, an absolute path, and prints a line for each
/// requirement to standard output. Throws std::runtime_error when it cannot be loaded or cannot be
/// tried out, or when a line cannot be written.
Finding reportOn(const std::filesystem::path& library);

}  // namespace vesk::hostcheck
