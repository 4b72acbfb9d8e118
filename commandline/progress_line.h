// SPDX-License-Identifier: MIT
// The live line on the terminal during long work.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
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
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

private:
    void redrawUntil(const std::stop_token& end);
    void draw() const;

    std::string doing_;
    const std::atomic<std::uint64_t>& entries_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    // Last, so that the thread ends before what it reads.
    std::jthread thread_;
};

}  // namespace vesk::commandline
