// SPDX-License-Identifier: MIT
// The setting for parent directories that a failed unpacking has made.
#pragma once

#include <cstdlib>

namespace vesk::testing {

/// A failed call removes the parents that it made. If VESK_SANDBOX_TOLERATE_PARENTS is set to
/// anything, parents that stay are accepted, to see the other findings.
inline bool toleratesMadeParents() {
    return std::getenv("VESK_SANDBOX_TOLERATE_PARENTS") != nullptr;
}

}  // namespace vesk::testing
