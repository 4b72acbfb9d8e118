// SPDX-License-Identifier: MIT
// A second reader of TAR archives, written for clarity and apart from the module: it says what
// unpacking must come to, without touching any file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/tree.h"

namespace vesk::fuzzing {

/// The outcome of unpacking an archive: the message of its failure, or, when that is empty, what is
/// at the destination then, in the form of vesk::testing::readTree.
struct Expected {
    std::string message;
    testing::Tree tree;
};

/// Returns what unpacking `archive`, a whole TAR stream, into a new directory must come to.
Expected expectedExtraction(std::string_view archive);

/// Returns the number in a numeric header field; nothing when the field is not valid.
std::optional<std::uint64_t> expectedOctal(std::string_view field);

/// Returns the components, below the destination, of the entry `name`, which has no trailing slash;
/// nothing when the name has to be refused.
std::optional<std::vector<std::string>> expectedComponents(std::string_view name);

}  // namespace vesk::fuzzing
