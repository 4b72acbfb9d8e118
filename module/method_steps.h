// SPDX-License-Identifier: MIT
// The steps that the methods of both archive classes share, in the order of execution. Each step
// raises its own failures as `IOException`.
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

/// Checks and prepares the archive's destination, then builds the TAR stream of the source. Raises
/// a failure and returns nothing. An older archive is untouched in either case.
std::optional<NewArchive> buildNewArchive(const char* sourcePath, const char* archivePath,
                                          void* mode);

/// Reads the whole archive at `archivePath`. Raises a failure and returns nothing.
std::optional<ByteBuffer> readArchive(const char* archivePath);

/// Unpacks the TAR stream `tarBytes` into `destinationPath` and raises any failure.
///
/// `errorText` is the one error text of the method. What earlier steps left in it is passed to the
/// runtime's staging functions. If one of them fails and does not replace the text, that earlier
/// text is raised.
void unpackTarBytes(std::span<const std::uint8_t> tarBytes, const char* destinationPath, void* mode,
                    std::string& errorText);

}  // namespace vesk::io::archives
