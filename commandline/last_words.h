// SPDX-License-Identifier: MIT
// What the program says of work that a signal has ended, and of what is left behind.
//
// The signal may come at any moment. So everything that the words need is stored when the work
// begins, and a signal handler can say them on any thread.
#pragma once

#include <filesystem>

namespace vesk::commandline {

// Until one of these is called, the work counts as making an archive that is written directly.

/// From now on the work is making an archive in the file `temporary`, which is to become `target`.
/// The last words remove `temporary`.
void expectMakingIn(const std::filesystem::path& temporary, const std::filesystem::path& target);

/// Notes a descriptor of that file, or -1 before it is closed. As long as there is none, the file
/// counts as not moved to its target.
void noteMakingDescriptor(int descriptor);

/// From now on the work is unpacking an archive to `destination`.
void expectUnpacking(const std::filesystem::path& destination);

/// Names the file in which an archive was made, if that has failed and the file is still there.
void sayMakingLeftover();

/// Returns true to the first caller only: it may say how the work has ended.
bool mayTellTheEnd();

/// Says that the work was interrupted and what is left of it, unless the end has been reported.
void sayLastWords();

/// The same for a signal handler: removes what a single step can remove, and says nothing if
/// standard error accepts nothing at the moment.
void sayLastWordsAtOnce();

}  // namespace vesk::commandline
