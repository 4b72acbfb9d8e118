// SPDX-License-Identifier: MIT
// Checking the error text after a call: untouched on success, completely replaced on failure.
#pragma once

#include <string>

#include "hostcheck/requirement.h"
#include "hostcheck/wording.h"

namespace vesk::hostcheck {

/// The error text before a call.
inline constexpr const char* earlierText = "an earlier text";

/// Throws a deviation unless a message has replaced all of the earlier text in `error`.
inline void expectReplaced(const std::string& error) {
    const bool replaced = !error.empty() && error.find(earlierText) == std::string::npos;
    expect(replaced, "a message instead of " + inQuotes(earlierText), inQuotes(error));
}

/// Throws a deviation unless `error` is still the earlier text.
inline void expectLeftAlone(const std::string& error) {
    expect(error == earlierText, inQuotes(earlierText) + " as it was", inQuotes(error));
}

}  // namespace vesk::hostcheck
