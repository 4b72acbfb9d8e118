// SPDX-License-Identifier: MIT
// The progress of the work: set by the thread that works, read by the one that shows it.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace vesk::commandline {

enum class Stage { walking, readingFiles, writing, readingArchive, decoding, unpacking, moving };

/// One moment of the work.
struct Moment {
    Stage stage = Stage::walking;
    std::uint64_t done = 0;
    std::uint64_t total = 0;  ///< 0 where that is not known
    std::chrono::steady_clock::time_point stageBegan;
};

class Progress {
public:
    /// Begins the work with this stage.
    explicit Progress(Stage first) : stage_(first) { enter(first); }

    /// Begins a stage. `total` is the amount of work in it, if that is known.
    void enter(Stage stage, std::uint64_t total = 0) {
        State& state = states_[static_cast<std::size_t>(stage)];
        state.total.store(total, std::memory_order_relaxed);
        state.began.store(std::chrono::steady_clock::now(), std::memory_order_relaxed);
        stage_.store(stage, std::memory_order_release);
    }

    /// Sets how much of the current stage is done. Costs as much as a store.
    void note(std::uint64_t done) {
        const Stage stage = stage_.load(std::memory_order_relaxed);
        states_[static_cast<std::size_t>(stage)].done.store(done, std::memory_order_relaxed);
    }

    /// Sets the amount of work in a stage that may have begun. May be called on any thread.
    void expect(Stage stage, std::uint64_t total) {
        states_[static_cast<std::size_t>(stage)].total.store(total, std::memory_order_relaxed);
    }

    /// May be called on any thread. The reader sees everything that was written before the stage
    /// began.
    Moment moment() const {
        const Stage stage = stage_.load(std::memory_order_acquire);
        const State& state = states_[static_cast<std::size_t>(stage)];
        return {stage, state.done.load(std::memory_order_relaxed),
                state.total.load(std::memory_order_relaxed),
                state.began.load(std::memory_order_relaxed)};
    }

private:
    /// Each stage has its own counters, so that a moment never mixes two stages.
    struct State {
        std::atomic<std::uint64_t> done = 0;
        std::atomic<std::uint64_t> total = 0;
        std::atomic<std::chrono::steady_clock::time_point> began;
    };

    std::array<State, 7> states_;
    std::atomic<Stage> stage_;
};

}  // namespace vesk::commandline
