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

/// Shows on standard error how far the work is, first after half a second and then a few times a
/// second, always on the same line. Nothing of it is left when it is destroyed. The terminal must
/// be one that can be redrawn.
class ProgressLine {
public:
    /// `moment` is called on another thread for as long as the line lives; it may take its time.
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
