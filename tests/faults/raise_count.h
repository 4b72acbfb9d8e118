// SPDX-License-Identifier: MIT
// How often the module has raised a host exception.
#pragma once

namespace vesk::testing {

/// The number of raises so far; a test may set it.
extern int raiseCount;

}  // namespace vesk::testing
