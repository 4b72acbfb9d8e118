// SPDX-License-Identifier: MIT
// What unpacking must do to a sandbox, predicted from the sandbox alone.
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

/// The state before the call.
struct UnpackScene {
    std::string top;    // where the sandbox is
    ActingUser user;    // who calls
    KernelPlace place;  // what the destination names, less the slashes and dots at its end
    Snapshot before;
};

/// Returns the path of `absolute` from the sandbox's top.
std::string fromTop(const UnpackScene& scene, const std::string& absolute);

/// Tells whether it is uncertain that `user` can delete the tree at `path`.
bool mayResistDeletion(const Snapshot& snapshot, const std::string& path, const ActingUser& user);

Prediction predictUnpack(const UnpackCase& unpackCase, const UnpackScene& scene);

/// Returns the state after a success.
Snapshot afterUnpack(const UnpackCase& unpackCase, const UnpackScene& scene);

}  // namespace vesk::testing
