// SPDX-License-Identifier: MIT
// What the other functions of the stand-in tell the calling thread's staging.
#pragma once

namespace vesk::standin {

/// Notes whether an extraction that is prepared from now on is to be flushed to disk when it is
/// committed.
void noteSync(bool wanted);

/// Notes a path string that is being converted. While staging is open, it is the name of an entry.
void notePath(const char* text);

}  // namespace vesk::standin
