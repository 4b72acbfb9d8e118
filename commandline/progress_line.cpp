// SPDX-License-Identifier: MIT
// Drawing the live line.
#include "commandline/progress_line.h"

#include <system_error>
#include <utility>

#include "commandline/progress_text.h"
#include "commandline/terminal.h"

namespace vesk::commandline {

namespace {

using namespace std::chrono_literals;

constexpr auto firstDrawn = 500ms;
constexpr auto redrawn = 200ms;

}  // namespace

ProgressLine::ProgressLine(std::function<Moment()> moment) : moment_(std::move(moment)) {
    try {
        thread_ = std::thread([this] { redrawUntilEnd(); });
    } catch (const std::system_error&) {
        // No thread available: continue without progress.
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
        lock.unlock();
        showLiveLine(
            progressText(moment_(), start_, std::chrono::steady_clock::now(), terminalColumns()));
        lock.lock();
    } while (pause(redrawn));
    eraseLiveLine();
}

}  // namespace vesk::commandline
