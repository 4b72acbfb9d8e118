// SPDX-License-Identifier: MIT
// The live line on the terminal during long work.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace vesk::commandline {

/// Shows on standard error how far the work is: entries and seconds, first after half a second and
/// then a few times a second, always on the same line. Nothing of it is left when it is destroyed.
/// The terminal must be one that can be redrawn.
class ProgressLine {
public:
    /// `doing` begins the line. `entries` is read on another thread and must outlive the line.
    ProgressLine(std::string doing, const std::atomic<std::uint64_t>& entries);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

private:
    void redrawUntilEnd();
    void draw() const;

    std::string doing_;
    const std::atomic<std::uint64_t>& entries_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::mutex mutex_;
    std::condition_variable endChanged_;
    bool end_ = false;  // guarded by mutex_
    std::thread thread_;
};

}  // namespace vesk::commandline
