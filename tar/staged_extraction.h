// SPDX-License-Identifier: MIT
// Extraction of a whole archive to its destination, or of nothing.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace vesk::io::archives {

/// Extracts `archive`, a whole TAR stream, into a staging directory of the runtime. When all of it
/// has been extracted, the runtime commits that directory to `destinationPath`, a host path string
/// that may be null or empty.
///
/// `overwrite` is passed on to the runtime. On failure returns false with `errorText` replaced by
/// "Destination path is required", a message of the extractor or one of the runtime; the runtime
/// has then been asked to remove the staging tree. Never raises. A C++ exception leaves the staging
/// tree behind.
bool tarUnpackArchiveBytes(std::span<const std::uint8_t> archive, const char* destinationPath,
                           bool overwrite, std::string& errorText);

}  // namespace vesk::io::archives
