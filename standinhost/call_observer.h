// SPDX-License-Identifier: MIT
// Tells the calling thread's observers of a host call that is about to be answered, and of
// decoding.
#pragma once

#include "standinhost/standin_host.h"

namespace vesk::standin {

/// Calls the calling thread's observer, if there is one, with `call`. Exceptions of the observer
/// pass through.
void announceCall(HostCall call);

/// The same for a decoded piece.
void announcePiece(const DecodedPiece& piece);

}  // namespace vesk::standin
