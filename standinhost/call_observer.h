// SPDX-License-Identifier: MIT
// Tells the calling thread's observer of a host call that is about to be answered.
#pragma once

#include "standinhost/standin_host.h"

namespace vesk::standin {

/// Calls the calling thread's observer, if there is one, with `call`; passes on what it throws.
void announceCall(HostCall call);

}  // namespace vesk::standin
