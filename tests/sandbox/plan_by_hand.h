// SPDX-License-Identifier: MIT
// Named sandboxes: their objects in the shortest notation.
#pragma once

#include <string>
#include <vector>

#include "tests/sandbox/sandbox_plan.h"

namespace vesk::testing {

/// The owner of an object that belongs to the user who unpacks.
inline constexpr ActingUser caller{static_cast<uid_t>(-1), 0};
inline constexpr ActingUser stranger{4321, 4321};

inline PlannedThing directory(const char* path, mode_t permissions = 0755,
                              ActingUser owner = caller) {
    return {path, S_IFDIR, permissions, owner, ""};
}

inline PlannedThing file(const char* path) {
    return {path, S_IFREG, 0644, caller, "old"};
}

/// Only root can read it.
inline PlannedThing closedFile(const char* path) {
    return {path, S_IFREG, 0000, caller, "closed"};
}

inline PlannedThing fifo(const char* path) {
    return {path, S_IFIFO, 0644, caller, ""};
}

inline PlannedThing link(const char* path, const char* target, ActingUser owner = caller) {
    return {path, S_IFLNK, 0777, owner, target};
}

/// Plans `things` in the planned root, which is the working directory.
inline SandboxPlan planByHand(const std::vector<PlannedThing>& things, const ActingUser& user) {
    SandboxPlan plan;
    std::string path;
    for (const std::string& part : splitPath(plannedRoot())) {
        path += (path.empty() ? "" : "/") + part;
        plan.things.push_back({path, S_IFDIR, 0755, user, ""});
    }
    for (PlannedThing thing : things) {
        thing.path = plannedRoot() + "/" + thing.path;
        if (thing.owner.uid == caller.uid) thing.owner = user;
        plan.things.push_back(thing);
    }
    plan.workingDirectory = plannedRoot();
    return plan;
}

}  // namespace vesk::testing
