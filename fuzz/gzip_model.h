// SPDX-License-Identifier: MIT
// A second reader of gzip members: written for clarity and independently of the module, with zlib
// for the compressed data.
#pragma once

#include <set>
#include <string>
#include <string_view>

namespace vesk::fuzzing {

/// The expected result of reading a member: one of these messages, or the content when there are
/// none.
struct ExpectedContent {
    std::set<std::string> refusals;
    std::string content;
};

/// Returns the expected result of reading `file`, which is one member from its first to its last
/// byte.
ExpectedContent expectedContent(std::string_view file);

}  // namespace vesk::fuzzing
