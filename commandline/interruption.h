// SPDX-License-Identifier: MIT
// Ending on a signal: after the work has been undone if that takes little time, else at once.
#pragma once

namespace vesk::commandline {

/// Thrown to leave the module's call when a signal asks the process to end. Not derived from
/// std::exception, so that nothing on the way handles it as a failure.
struct Interruption {};

/// From now on the first signal that would end the process is only noted, so that the work can be
/// given up and cleaned up. If that takes longer than 0.3 seconds, or at a second signal, the
/// process says its last words (see last_words.h) and ends. Signals that are ignored or blocked
/// already, as under nohup, stay so.
///
/// A thread of its own receives the signals, since the working thread receives none during a long
/// read. If no thread is available, the working thread receives them.
void noteInterruptions();

/// Throws Interruption if a signal has been noted. A signal after the last of these calls does not
/// stop the work: it is completed and reported as done.
void throwIfInterrupted();

/// If a signal has been noted, ends the process by it, so that the caller of the program sees the
/// cause. Otherwise lets every later signal end the process at once.
void endIfInterrupted();

}  // namespace vesk::commandline
