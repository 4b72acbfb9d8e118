// SPDX-License-Identifier: MIT
// Counting the entries of a TAR stream by hopping from header to header.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <utility>

#include "commandline/group.h"

namespace vesk::commandline {

/// Counts the entries of a TAR stream that is taken piece by piece. It checks nothing: what it
/// counts is right for a stream that the module accepts.
class HeaderTally {
public:
    /// Takes the bytes that follow what has been taken or left out.
    void take(std::span<const std::uint8_t> bytes);

    /// Leaves out what lies before the next header. Returns how many bytes that is.
    std::uint64_t leaveOut();

    /// Takes the stream that is in the file from its beginning on.
    void takeFile(int descriptor);

    /// Returns how many entries there are; 0 as long as the end of the stream has not been taken.
    std::uint64_t entries() const { return hasEnded_ ? entries_ : 0; }

    /// Returns the regular files whose mode lets somebody execute them. Once.
    Group takeExecutables() noexcept { return std::move(executables_); }

private:
    static constexpr std::size_t blockSize = 512;
    using Block = std::span<const std::uint8_t, blockSize>;

    void takeHeader(Block header);

    std::array<std::uint8_t, blockSize> begun_{};  ///< a header whose end is yet to come
    std::size_t begunSize_ = 0;
    std::uint64_t toLeaveOut_ = 0;
    std::uint64_t entries_ = 0;
    bool hasEnded_ = false;
    bool isLost_ = false;  ///< there was a header that cannot be read
    Group executables_;
};

}  // namespace vesk::commandline
