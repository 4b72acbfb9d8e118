// SPDX-License-Identifier: MIT
// A reader of archives that is independent of the module.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace vesk::testing {

/// The files of an archive: name to content.
using ArchivedFiles = std::map<std::string, std::string>;

/// Reads a ustar stream of regular files and its two blocks of end marker. Returns nothing when it
/// is anything else, or names a file twice.
std::optional<ArchivedFiles> readTar(const std::string& bytes);

/// Reads such a stream from one gzip member that fills `bytes`.
std::optional<ArchivedFiles> readTgz(const std::string& bytes);

}  // namespace vesk::testing
