// SPDX-License-Identifier: MIT
// What is at a path, why the system does not find it, and how much space is free there.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vesk::explanation {

/// Returns the directory that `path` is in; "." for a bare name.
std::string directoryOf(const std::string& path);

/// Returns what is at the path, with links followed: "a directory", "a regular file of 3 bytes", "a
/// FIFO". Empty if nothing is found.
std::string kindAt(const std::string& path);

/// Whether the file is one of the kernel's in /proc or /sys, which have no size or not the one that
/// they say.
bool isKernels(const std::string& path);

/// Why a path is not found.
struct Lookup {
    /// The system's error number; 0 if the whole path is found.
    int error = 0;
    /// The part of the path that is not found, and the reason.
    std::string words;
    /// The directory in which that part should be.
    std::string directory;
    /// That part is a link, which leads to what is not found.
    bool isLink = false;
};

/// Looks up the path, one component at a time.
Lookup lookUp(const std::string& path);

/// Says why the directory does not exist and cannot be created, or what is in its place. Empty if
/// it exists or can be created.
std::string directoryTrouble(const std::string& directory);

/// Says why no file can be created in the directory; empty if one can.
std::string makingTrouble(const std::string& directory);

/// Says why the file cannot be read or, with `isWriting`, written; empty if it can.
std::string accessTrouble(const std::string& path, bool isWriting);

/// Says how to permit the reading of a file or directory, or of what leads to it.
std::string permitting(const std::string& path);

/// Says that the file system lacks the space for `files` new files that take `needed` bytes; empty
/// if it has it. The file system is that of `path` or, if that is missing, of the next directory
/// above it.
std::string roomTrouble(const std::string& path, std::uint64_t needed, std::uint64_t files = 0);

/// Says that this process can open only a few more files; empty if it can open enough.
std::string descriptorTrouble();

/// Returns the limit of this process on the size of a file, in bytes, if there is one.
std::optional<std::uint64_t> fileSizeLimit();

}  // namespace vesk::explanation
