// SPDX-License-Identifier: MIT
// What becomes of an error text: untouched on success, replaced as a whole on failure.
#pragma once

#include <string>

#include "hostcheck/requirement.h"
#include "hostcheck/wording.h"

namespace vesk::hostcheck {

/// What the error text holds before a call.
inline constexpr const char* earlierText = "an earlier text";

/// Deviates when `error` is anything but a message in the place of the earlier text.
inline void expectReplaced(const std::string& error) {
    const bool replaced = !error.empty() && error.find(earlierText) == std::string::npos;
    expect(replaced, "a message instead of " + inQuotes(earlierText), inQuotes(error));
}

/// Deviates when `error` is not the earlier text any more.
inline void expectLeftAlone(const std::string& error) {
    expect(error == earlierText, inQuotes(earlierText) + " as it was", inQuotes(error));
}

}  // namespace vesk::hostcheck
