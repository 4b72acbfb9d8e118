// SPDX-License-Identifier: MIT
// The steps that the methods of both archive classes share, in the order in which they are taken.
// Each raises its own failures as `IOException`.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

#include "fileaccess/byte_buffer.h"

namespace vesk::io::archives {

/// An archive that is ready to be written.
struct NewArchive {
    std::filesystem::path path;
    ByteBuffer tarBytes;
};

/// Checks and prepares the archive's destination, then builds the TAR stream of the source. Returns
/// nothing after a failure, which has been raised; an older archive is still untouched then.
std::optional<NewArchive> buildNewArchive(const char* sourcePath, const char* archivePath,
                                          void* mode);

/// Reads the archive at `archivePath` whole. Returns nothing after a failure, which has been
/// raised.
std::optional<ByteBuffer> readArchive(const char* archivePath);

/// Unpacks the TAR stream `tarBytes` into `destinationPath` and raises what goes wrong.
///
/// `errorText` is the one error text of the method: what earlier steps left in it reaches the
/// runtime's staging, and is what is raised when that refuses without a text of its own.
void unpackTarBytes(std::span<const std::uint8_t> tarBytes, const char* destinationPath, void* mode,
                    std::string& errorText);

}  // namespace vesk::io::archives
