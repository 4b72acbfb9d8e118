// SPDX-License-Identifier: MIT
// What the calling thread's staging is told by the other functions of the host.
#pragma once

namespace vesk::standin {

/// Notes whether what is prepared from now on is to be flushed when it is committed.
void noteSync(bool wanted);

/// Notes a path that is converted: while staging is open, it is an entry's name.
void notePath(const char* text);

}  // namespace vesk::standin
