// SPDX-License-Identifier: MIT
// What is wrong with a command line, in words that repeat what was typed.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace vesk::commandline {

/// Returns what is wrong with `words`, for which `program` has reported `error`: the word that
/// cannot be used, or the one that is missing.
std::string complaintOf(const CLI::App& program, const std::vector<std::string>& words,
                        const CLI::ParseError& error);

}  // namespace vesk::commandline
