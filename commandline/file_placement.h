// SPDX-License-Identifier: MIT
// Giving a file its final name.
#pragma once

#include <string>

namespace vesk::commandline {

enum class FilePlacement { done, targetExists, failed };

/// Renames `file` to `target` unless something exists there: atomically if the system can. On file
/// systems that support neither of the two atomic ways, a file that appears between the check and
/// the renaming is replaced. Names `file` on standard error if it could not be removed.
FilePlacement placeNewFile(const std::string& file, const std::string& target);

/// Renames `file` to `target` and replaces any file there. Never returns `targetExists`.
FilePlacement replaceFile(const std::string& file, const std::string& target);

}  // namespace vesk::commandline
