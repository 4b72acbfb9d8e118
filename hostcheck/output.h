// SPDX-License-Identifier: MIT
// Writing to standard output.
#pragma once

#include <string>

namespace vesk::hostcheck {

/// Opens those of the descriptors 0 to 2 that are closed, so that no file that is opened later gets
/// one of these numbers. They cannot be written to.
void occupyStandardDescriptors();

/// Writes `text` and a newline to standard output without buffering, to show the progress of the
/// check. Throws std::system_error when it cannot be written.
void printLine(const std::string& text);

}  // namespace vesk::hostcheck
