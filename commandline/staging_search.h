// SPDX-License-Identifier: MIT
// Finds what an unpacking has left beside its destination.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <filesystem>
#include <string>

#include "commandline/fixed_text.h"

namespace vesk::commandline {

/// Where to look, and how to tell this unpacking's directories from those of earlier runs.
struct StagingPlace {
    std::string directory;       ///< that of the destination
    std::string name;            ///< the destination's own
    std::string shownDirectory;  ///< as shown on standard error, with its slash
    std::string shownName;       ///< likewise
    bool isEscaped;              ///< whether they are shown on a terminal, and so escaped
    /// What was at the destination, if anything was.
    bool destinationExisted;
    dev_t device;
    ino_t inode;
    timespec beginning;
};

/// Returns the place beside `destination` for an unpacking that begins now.
StagingPlace stagingPlace(const std::filesystem::path& destination);

/// Appends to `text` the state of the destination and what is left beside it, with what may be done
/// about each. Can be called in a signal handler.
void tellStaging(const StagingPlace& place, FixedText& text);

}  // namespace vesk::commandline
