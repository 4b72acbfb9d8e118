// SPDX-License-Identifier: MIT
// Requests that could be carried out, but that nobody intends.
#pragma once

#include <optional>
#include <string>

#include "commandline/arguments.h"

namespace vesk::commandline {

/// Returns what is wrong with a request that would destroy the data that it needs, and what to type
/// instead; nothing for any other request. With `--overwrite` such a request unpacks onto the
/// working directory, a directory above it, a directory that holds the archive, or the archive
/// itself; or it makes an archive of itself, or over a file in its source. Without it, it unpacks
/// onto an empty working directory. Files are recognised under any name and through links.
std::optional<std::string> mistakeIn(const Arguments& arguments);

}  // namespace vesk::commandline
