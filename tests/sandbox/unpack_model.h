// SPDX-License-Identifier: MIT
// What unpacking must do to a sandbox, told from the sandbox alone.
#pragma once

#include <optional>
#include <string>

#include "tests/sandbox/acting_user.h"
#include "tests/sandbox/kernel_place.h"
#include "tests/sandbox/prediction.h"
#include "tests/sandbox/random_archive.h"
#include "tests/sandbox/snapshot.h"

namespace vesk::testing {

/// One call.
struct UnpackCase {
    ArchiveToUnpack archive;
    std::string destination;
    bool overwrite = false;
    mode_t mask = 022;
};

/// What was known before the call.
struct UnpackScene {
    std::string top;    // where the sandbox is
    ActingUser user;    // who calls
    KernelPlace place;  // what the destination names, less the slashes and dots at its end
    Snapshot before;
};

/// Returns the path of `absolute` from the sandbox's top.
std::string fromTop(const UnpackScene& scene, const std::string& absolute);

/// Returns whether `user` cannot be sure to be able to delete the tree at `path`.
bool mayResistDeletion(const Snapshot& snapshot, const std::string& path, const ActingUser& user);

Prediction predictUnpack(const UnpackCase& unpackCase, const UnpackScene& scene);

/// Returns what a success leaves behind.
Snapshot afterUnpack(const UnpackCase& unpackCase, const UnpackScene& scene);

}  // namespace vesk::testing
