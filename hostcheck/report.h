// SPDX-License-Identifier: MIT
// Reporting on a runtime library.
#pragma once

#include <filesystem>

namespace vesk::hostcheck {

/// The result for a library.
enum class Finding { allHold, someFail, functionsMissing };

/// Checks the runtime library at `library`, an absolute path, and prints a line for each
/// requirement to standard output. Throws std::runtime_error when the library cannot be loaded, a
/// trial cannot be run or a line cannot be written.
Finding reportOn(const std::filesystem::path& library);

}  // namespace vesk::hostcheck
