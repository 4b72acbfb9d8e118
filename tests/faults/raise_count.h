// SPDX-License-Identifier: MIT
// Counting how often the module has raised an exception.
#pragma once

namespace vesk::testing {

/// The number of raises so far; a test may set it.
extern int raiseCount;

}  // namespace vesk::testing
