// SPDX-License-Identifier: MIT
// Drawing the live line.
#include "commandline/progress_line.h"

#include <system_error>
#include <utility>

#include "commandline/terminal.h"
#include "commandline/wording.h"

namespace vesk::commandline {

namespace {

using namespace std::chrono_literals;

constexpr auto firstDrawn = 500ms;
constexpr auto redrawn = 200ms;

}  // namespace

ProgressLine::ProgressLine(std::string doing, const std::atomic<std::uint64_t>& entries)
    : doing_(std::move(doing)), entries_(entries) {
    try {
        thread_ = std::thread([this] { redrawUntilEnd(); });
    } catch (const std::system_error&) {
        // No thread to be had: the work is done all the same, only unseen.
    }
}

ProgressLine::~ProgressLine() {
    {
        const std::lock_guard lock(mutex_);
        end_ = true;
    }
    endChanged_.notify_one();
    if (thread_.joinable()) thread_.join();
}

void ProgressLine::redrawUntilEnd() {
    std::unique_lock lock(mutex_);
    const auto pause = [&](std::chrono::milliseconds duration) {
        return !endChanged_.wait_for(lock, duration, [&] { return end_; });
    };
    if (!pause(firstDrawn)) return;
    do {
        draw();
    } while (pause(redrawn));
    eraseLiveLine();
}

void ProgressLine::draw() const {
    const auto elapsed = std::chrono::steady_clock::now() - start_;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    showLiveLine(doing_ + ": " + counted(entries_, "entry", "entries") + " so far, " +
                 std::to_string(seconds) + " s");
}

}  // namespace vesk::commandline
