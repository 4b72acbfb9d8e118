// SPDX-License-Identifier: MIT
// What is at a path, why the system does not find it, and what room there is.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vesk::explanation {

/// Returns the directory that `path` is in; "." for a bare name.
std::string directoryOf(const std::string& path);

/// Returns what is at the path, the end of links: "a directory", "a regular file of 3 bytes", "a
/// FIFO". Empty where nothing is found.
std::string kindAt(const std::string& path);

/// Why something is not found.
struct Lookup {
    /// The system's number; 0 where all is found.
    int error = 0;
    /// Which part of the path it is, and the reason.
    std::string words;
    /// The directory that it is looked for in.
    std::string directory;
};

/// Looks for one part of the path after the other.
Lookup lookUp(const std::string& path);

/// Says why the directory is not there and cannot be made, or what is there in its place; empty
/// where nothing is against it.
std::string directoryTrouble(const std::string& directory);

/// Says why no file can be made in the directory; empty where nothing is against it.
std::string makingTrouble(const std::string& directory);

/// Says why the file cannot be read or, for `isWriting`, written; empty where it can.
std::string accessTrouble(const std::string& path, bool isWriting);

/// Says that the file system of `path`, or where that is missing of the next directory above it,
/// has not the room for files that take `needed` bytes; empty where it has.
std::string roomTrouble(const std::string& path, std::uint64_t needed);

/// Returns the most bytes that a file of this process may have, if there is such a limit.
std::optional<std::uint64_t> fileSizeLimit();

}  // namespace vesk::explanation
