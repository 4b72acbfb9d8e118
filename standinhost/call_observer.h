// SPDX-License-Identifier: MIT
// Announces the module's calls, and decoded pieces, to the calling thread's observers.
#pragma once

#include "standinhost/standin_host.h"

namespace vesk::standin {

/// Calls the calling thread's observer, if there is one, with `call`. Exceptions of the observer
/// pass through.
void announceCall(HostCall call);

/// Does the same for a decoded piece.
void announcePiece(const DecodedPiece& piece);

}  // namespace vesk::standin
