// SPDX-License-Identifier: MIT
// Actions of others between two system calls, and a system that reports less.
#pragma once

#include <functional>
#include <string>

/// Replaces mkdirat, readlink, rmdir, unlinkat and statx of the test executable from construction
/// to destruction. Only one may exist at a time.
class InBetween {
public:
    InBetween();
    ~InBetween();
    InBetween(const InBetween&) = delete;
    InBetween& operator=(const InBetween&) = delete;

    /// Called, when set, before mkdirat makes a directory; returns whether somebody else has made
    /// it.
    std::function<bool(const std::string& name)> isTaken;
    /// Called, when set, after mkdirat has made a directory.
    std::function<void(const std::string& name)> afterMaking;
    /// Called, when set, before the first link is read by its path.
    std::function<void()> beforeReading;
    /// Called, when set, before something is removed by this path or name.
    std::function<void(const std::string& name)> beforeRemoving;
    /// Whether statx reports mount points, as all but old systems do.
    bool tellsMounts = true;
};
