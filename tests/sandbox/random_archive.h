// SPDX-License-Identifier: MIT
// Archives to unpack, valid and damaged, with the expected trees.
#pragma once

#include <string>

#include "tests/sandbox/random_source.h"
#include "tests/sandbox/snapshot.h"
#include "tests/support/module_calls.h"

namespace vesk::testing {

struct ArchiveToUnpack {
    Container container = Container::tar;
    std::string bytes;
    Snapshot tree;            // of a good one: types and contents, by paths below the destination
    const char* damage = "";  // what is wrong with a damaged one; empty for a good one

    bool isGood() const { return *damage == '\0'; }
};

/// Two of three archives are valid.
ArchiveToUnpack randomArchive(RandomSource& random);

/// Returns an archive with the file "new" and the directory "sub"; without an end marker if
/// `isCut`.
ArchiveToUnpack plainArchive(bool isCut);

}  // namespace vesk::testing
