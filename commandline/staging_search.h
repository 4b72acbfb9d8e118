// SPDX-License-Identifier: MIT
// Finding what an unpacking has left beside its destination.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <filesystem>
#include <string>

#include "commandline/fixed_text.h"

namespace vesk::commandline {

/// Where to look for it and how to tell it from what earlier runs have left.
struct StagingPlace {
    std::string directory;       ///< that of the destination
    std::string name;            ///< the destination's own
    std::string shownDirectory;  ///< as standard error is to be shown it, with its slash
    std::string shownName;       ///< likewise
    bool isEscaped;              ///< whether that is any different
    /// What the destination was, if it was there.
    bool destinationExisted;
    dev_t device;
    ino_t inode;
    timespec beginning;
};

/// Returns the place beside `destination`, for an unpacking that begins now.
StagingPlace stagingPlace(const std::filesystem::path& destination);

/// Appends to `text` how the destination is and what is left beside it, each with what may be done
/// with it. Can be called in a signal handler.
void tellStaging(const StagingPlace& place, FixedText& text);

}  // namespace vesk::commandline
