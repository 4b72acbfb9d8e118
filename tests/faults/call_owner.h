// SPDX-License-Identifier: MIT
// Finding the caller on the call stack.
#pragma once

namespace vesk::testing {

/// The two libraries that the tests observe.
enum class CallOwner { none, module, host };

/// Returns which of the two libraries is innermost on the call stack. May allocate.
CallOwner callOwner();

/// Tells whether a function whose symbol contains `name` is on the call stack. May allocate.
bool isCalledBy(const char* name);

}  // namespace vesk::testing
