// SPDX-License-Identifier: MIT
// A second reader of TAR archives, written for clarity and independently of the module. It predicts
// the result of unpacking without touching any file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/tree.h"

namespace vesk::fuzzing {

/// The result of unpacking an archive: the message of its failure, or, when that is empty, the tree
/// at the destination in the form of vesk::testing::readTree.
struct Expected {
    std::string message;
    testing::Tree tree;
};

/// Returns the expected result of unpacking `archive`, a whole TAR stream, into a new directory.
Expected expectedExtraction(std::string_view archive);

/// Returns the number in a numeric header field; nothing when the field is not valid.
std::optional<std::uint64_t> expectedOctal(std::string_view field);

/// Returns the components, below the destination, of the entry `name`, which has no trailing slash;
/// nothing when the name has to be refused.
std::optional<std::vector<std::string>> expectedComponents(std::string_view name);

}  // namespace vesk::fuzzing
