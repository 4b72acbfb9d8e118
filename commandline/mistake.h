// SPDX-License-Identifier: MIT
// Requests that could be carried out, but that nobody means.
#pragma once

#include <optional>
#include <string>

#include "commandline/arguments.h"

namespace vesk::commandline {

/// Returns what is wrong with a request that would destroy what it is to work with, and what to
/// type instead; nothing for any other request. With `--overwrite`, that is to unpack onto the
/// working directory, one above it, one that the archive is in or the archive itself, and to make
/// an archive of itself or over one in its source; without it, to unpack onto a working directory
/// that is empty. Files are known again by whatever name, through links too.
std::optional<std::string> mistakeIn(const Arguments& arguments);

}  // namespace vesk::commandline
