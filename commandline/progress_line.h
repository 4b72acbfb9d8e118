// SPDX-License-Identifier: MIT
// The live line on the terminal during long work.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "commandline/progress.h"

namespace vesk::commandline {

/// Shows the progress on standard error, first after half a second and then a few times a second,
/// always on the same line. The destructor erases it. The terminal must be one that can be redrawn.
class ProgressLine {
public:
    /// `moment` is called on another thread while the line exists. It may be slow.
    explicit ProgressLine(std::function<Moment()> moment);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

private:
    void redrawUntilEnd();

    std::function<Moment()> moment_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::mutex mutex_;
    std::condition_variable endChanged_;
    bool end_ = false;  // guarded by mutex_
    std::thread thread_;
};

}  // namespace vesk::commandline
