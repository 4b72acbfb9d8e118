// SPDX-License-Identifier: MIT
// Turns the words of the command line into a request.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <variant>

#include "commandline/archive_format.h"

namespace vesk::commandline {

enum class Verb { make, unpack };

/// What the user wants done.
struct Arguments {
    Verb verb = Verb::make;
    std::string archive;
    /// The source of a new archive or the destination of an unpacked one.
    std::string tree;
    /// The module's file; empty if the user named none.
    std::filesystem::path module;
    /// Always set for making. When unpacking, nothing means to recognise it by the archive's
    /// content.
    std::optional<ArchiveFormat> format;
    bool overwrite = false;
    /// Write the result to the disk before reporting success.
    bool sync = false;
    bool quiet = false;
};

/// A help or version text that the user asked for; goes to standard output.
struct Information {
    std::string text;
};

/// Wrong usage; both lines go to standard error.
struct UsageError {
    std::string message;
    std::string hint;
};

/// Reads the words that main was given. Names may hold any bytes and are never converted.
std::variant<Arguments, Information, UsageError> parseArguments(int argc, const char* const* argv);

}  // namespace vesk::commandline
