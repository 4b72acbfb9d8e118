// SPDX-License-Identifier: MIT
// Extraction that reaches its destination whole or not at all.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace vesk::io::archives {

/// Extracts `archive`, a whole TAR stream, into a staging directory of the runtime, which commits
/// it to `destinationPath`, a host string that may be null or empty, only when all of it succeeded.
///
/// `overwrite` is passed on to the runtime. Returns false with `errorText` replaced by "Destination
/// path is required", a message of the extractor or one of the runtime's; the staging tree has then
/// been removed. Never raises. A C++ exception that passes through leaves the staging tree behind.
bool tarUnpackArchiveBytes(std::span<const std::uint8_t> archive, const char* destinationPath,
                           bool overwrite, std::string& errorText);

}  // namespace vesk::io::archives
