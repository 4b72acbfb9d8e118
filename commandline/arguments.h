// SPDX-License-Identifier: MIT
// The command line's words, turned into a request.
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
    /// The module's file; empty where the user has named none.
    std::filesystem::path module;
    /// Always set when making; nothing when unpacking by what the archive holds.
    std::optional<ArchiveFormat> format;
    bool overwrite = false;
    /// What is made or unpacked is to be on the disk before success is told.
    bool sync = false;
    bool quiet = false;
};

/// A help or version text that was asked for; goes to standard output.
struct Information {
    std::string text;
};

/// Wrong usage; both lines go to standard error.
struct UsageError {
    std::string message;
    std::string hint;
};

/// Reads the words that main was given. Names are taken as they are: any bytes, converted nowhere.
std::variant<Arguments, Information, UsageError> parseArguments(int argc, const char* const* argv);

}  // namespace vesk::commandline
