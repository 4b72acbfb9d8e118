// SPDX-License-Identifier: MIT
// Giving a file its final name.
#pragma once

#include <string>

namespace vesk::commandline {

enum class FilePlacement { done, targetExists, failed };

/// Renames `file` to `target` unless anything is there, in one step where the system can. On file
/// systems that know neither of the two ways to do that, what comes there between a look and the
/// renaming is replaced. Names `file` on standard error if it could not be removed.
FilePlacement placeNewFile(const std::string& file, const std::string& target);

/// Renames `file` to `target`, whatever file is there. Never gives `targetExists`.
FilePlacement replaceFile(const std::string& file, const std::string& target);

}  // namespace vesk::commandline
