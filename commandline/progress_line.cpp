// SPDX-License-Identifier: MIT
// Drawing the live line.
#include "commandline/progress_line.h"

#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <utility>

#include "commandline/terminal.h"
#include "commandline/wording.h"

namespace vesk::commandline {

namespace {

using namespace std::chrono_literals;

constexpr auto firstDrawn = 500ms;
constexpr auto redrawn = 200ms;
constexpr const char* erasure = "\r\033[K";

}  // namespace

ProgressLine::ProgressLine(std::string doing, const std::atomic<std::uint64_t>& entries)
    : doing_(std::move(doing)), entries_(entries) {
    try {
        thread_ = std::jthread([this](const std::stop_token& end) { redrawUntil(end); });
    } catch (const std::system_error&) {
        // No thread to be had: the work is done all the same, only unseen.
    }
}

void ProgressLine::redrawUntil(const std::stop_token& end) {
    std::mutex mutex;
    std::condition_variable_any ended;
    std::unique_lock lock(mutex);
    const auto pause = [&](std::chrono::milliseconds duration) {
        return !ended.wait_for(lock, end, duration, [&] { return end.stop_requested(); });
    };
    if (!pause(firstDrawn)) return;
    do {
        draw();
    } while (pause(redrawn));
    writeText(STDERR_FILENO, erasure);
}

void ProgressLine::draw() const {
    const auto elapsed = std::chrono::steady_clock::now() - start_;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    writeText(STDERR_FILENO, erasure + doing_ + ": " + counted(entries_, "entry", "entries") +
                                 " so far, " + std::to_string(seconds) + " s");
}

}  // namespace vesk::commandline
