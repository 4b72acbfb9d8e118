// SPDX-License-Identifier: MIT
// What others do in between two calls of the system, and a system that tells less.
#pragma once

#include <functional>
#include <string>

/// Takes over mkdirat, readlink, rmdir, unlinkat and statx of the test executable from construction
/// to destruction; one at a time.
class InBetween {
public:
    InBetween();
    ~InBetween();
    InBetween(const InBetween&) = delete;
    InBetween& operator=(const InBetween&) = delete;

    /// Called, when set, before mkdirat makes a directory: whether somebody else makes it first.
    std::function<bool(const std::string& name)> isTaken;
    /// Called, when set, after mkdirat has made a directory.
    std::function<void(const std::string& name)> afterMaking;
    /// Called, when set, before the first link is read by its path.
    std::function<void()> beforeReading;
    /// Called, when set, before each thing is removed by this path or name.
    std::function<void(const std::string& name)> beforeRemoving;
    /// Whether statx tells mount points, as all but old systems do.
    bool tellsMounts = true;
};
