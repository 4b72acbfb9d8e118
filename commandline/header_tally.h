// SPDX-License-Identifier: MIT
// Counts the entries of a TAR stream, reading its headers only.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <span>
#include <utility>

#include "commandline/group.h"

namespace vesk::commandline {

/// Counts the entries of a TAR stream that arrives in pieces. It checks nothing: the count is right
/// for a stream that the module accepts.
class HeaderTally {
public:
    /// Takes the bytes that follow those taken or skipped so far.
    void take(std::span<const std::uint8_t> bytes);

    /// Skips the bytes before the next header. Returns how many they are.
    std::uint64_t leaveOut();

    /// Takes the whole stream from the file, until `isStopped` is set.
    void takeFile(int descriptor, const std::atomic<bool>& isStopped);

    /// Returns the number of entries; 0 until the end of the stream has been taken.
    std::uint64_t entries() const { return hasEnded_ ? entries_ : 0; }

    /// Returns the regular files that somebody may execute. To be called once.
    Group takeExecutables() noexcept { return std::move(executables_); }

private:
    static constexpr std::size_t blockSize = 512;
    using Block = std::span<const std::uint8_t, blockSize>;

    void takeHeader(Block header);

    std::array<std::uint8_t, blockSize> begun_{};  ///< a header whose end has not arrived
    std::size_t begunSize_ = 0;
    std::uint64_t toLeaveOut_ = 0;
    std::uint64_t entries_ = 0;
    bool hasEnded_ = false;
    bool isLost_ = false;  ///< there was a header that cannot be read
    Group executables_;
};

}  // namespace vesk::commandline
