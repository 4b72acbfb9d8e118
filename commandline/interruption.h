// SPDX-License-Identifier: MIT
// Ending on a signal: at a moment when nothing is half done if that comes soon, else without it.
#pragma once

namespace vesk::commandline {

/// Leaves the module's call when a signal asks for the end. Not derived from std::exception, so
/// that nobody on the way takes it for a failure.
struct Interruption {};

/// From now on the first signal that would end the process is only noted, so that the work can be
/// given up and cleared away. Where that is not done within a third of a second, and at a second
/// signal, the process says its last words (see last_words.h) and ends. Signals that are ignored or
/// blocked already, as under nohup, stay so.
///
/// The signals are received on a thread of their own, since a long read lets the thread that makes
/// it receive nothing. Where no thread is to be had, the work's own receives them.
void noteInterruptions();

/// Throws Interruption if a signal has been noted. A signal that comes when the last such look has
/// been taken does not stop the work: it is completed and said to be.
void throwIfInterrupted();

/// Ends the process by the signal that has been noted, if there is one, so that whoever started it
/// sees what has happened; else lets every further signal end it at once.
void endIfInterrupted();

}  // namespace vesk::commandline
