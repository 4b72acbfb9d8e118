// SPDX-License-Identifier: MIT
// What the mode handle asks for besides overwriting, which the runtime's own functions do not pass
// on.
#pragma once

namespace vesk::standin {

/// Tells whether the mode that the calling thread's last call was given asks for flushing.
bool isSyncAskedFor();

}  // namespace vesk::standin
