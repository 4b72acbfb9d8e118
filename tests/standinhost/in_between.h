// SPDX-License-Identifier: MIT
// What others do in between two calls of the system, and a system that tells less.
#pragma once

#include <functional>

/// Takes over mkdirat, readlink and statx of the test executable from construction to destruction;
/// one at a time.
class InBetween {
public:
    InBetween();
    ~InBetween();
    InBetween(const InBetween&) = delete;
    InBetween& operator=(const InBetween&) = delete;

    /// Called, when set, after the first directory is made by mkdirat.
    std::function<void()> afterMaking;
    /// Called, when set, before the first link is read by its path.
    std::function<void()> beforeReading;
    /// Whether statx tells mount points, as all but old systems do.
    bool tellsMounts = true;
};
