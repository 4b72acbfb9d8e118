// SPDX-License-Identifier: MIT
// The one switch for parent directories that a failed unpacking has made.
#pragma once

#include <cstdlib>

namespace vesk::testing {

/// A failed call removes the parents that it made. VESK_SANDBOX_TOLERATE_PARENTS, set to anything,
/// accepts those that stay, to see what else there is.
inline bool toleratesMadeParents() {
    return std::getenv("VESK_SANDBOX_TOLERATE_PARENTS") != nullptr;
}

}  // namespace vesk::testing
