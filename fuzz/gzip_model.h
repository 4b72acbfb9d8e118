// SPDX-License-Identifier: MIT
// A second reader of gzip members, written for clarity and apart from the module, with zlib for the
// compressed data.
#pragma once

#include <set>
#include <string>
#include <string_view>

namespace vesk::fuzzing {

/// What reading a member must come to: one of these messages, or, when there are none, the content.
struct ExpectedContent {
    std::set<std::string> refusals;
    std::string content;
};

/// Returns what reading `file`, one member from its first to its last byte, must come to.
ExpectedContent expectedContent(std::string_view file);

}  // namespace vesk::fuzzing
