// SPDX-License-Identifier: MIT
// What the program says on standard output.
#pragma once

#include <string>

namespace vesk::hostcheck {

/// Makes descriptors 0 to 2 that are closed ones that cannot be written to, lest a file that is
/// opened later takes the place of one of them.
void occupyStandardDescriptors();

/// Writes `text` and a line's end to standard output at once, so that whoever reads along sees how
/// far the check is. Throws std::system_error when it cannot be written.
void printLine(const std::string& text);

}  // namespace vesk::hostcheck
