// SPDX-License-Identifier: MIT
// Stopping on SIGINT, SIGTERM or SIGHUP at a moment when nothing is half done.
#pragma once

namespace vesk::commandline {

/// Leaves the module's call when a signal asks for the end. Not derived from std::exception, so
/// that nobody on the way takes it for a failure.
struct Interruption {
    int signal;
};

/// From now on the first such signal is only noted; a second one of its kind ends the process at
/// once. Signals that are ignored already, as under nohup, stay ignored.
void noteInterruptions();

/// Throws Interruption if a signal has been noted. A signal that comes when the module has made its
/// last host call thus changes nothing: the work is completed and said to be.
void throwIfInterrupted();

}  // namespace vesk::commandline
