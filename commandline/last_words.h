// SPDX-License-Identifier: MIT
// What is said of work that a signal has ended, and of what it leaves behind.
//
// The signal may come at any moment, so everything that the words need is kept at hand from the
// beginning of the work: they can be said from a signal handler, on any thread.
#pragma once

#include <filesystem>

namespace vesk::commandline {

// At first the work is taken to be the making of an archive that is written directly.

/// From now on the work is the making of an archive in the file `temporary`, which the last words
/// remove, and which is to become `target`. `descriptor` refers to it and is never closed.
void expectMakingIn(const std::filesystem::path& temporary, const std::filesystem::path& target,
                    int descriptor);

/// From now on the work is the unpacking of an archive to `destination`.
void expectUnpacking(const std::filesystem::path& destination);

/// Returns true once: to whoever may say how the work has ended.
bool mayTellTheEnd();

/// Says that the work was interrupted and what is left of it, unless the end has been told.
void sayLastWords();

/// The same for a signal handler: clears away what can be cleared away in one step, and says
/// nothing where standard error takes nothing at the moment.
void sayLastWordsAtOnce();

}  // namespace vesk::commandline
