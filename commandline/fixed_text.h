// SPDX-License-Identifier: MIT
// A text of bounded length that can be put together in a signal handler.
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

namespace vesk::commandline {

/// Text in a buffer of its own: nothing is allocated. What no longer fits is cut off.
class FixedText {
public:
    FixedText& operator<<(std::string_view text) {
        const std::size_t taken = std::min(text.size(), bytes_.size() - size_);
        std::copy_n(text.data(), taken, bytes_.data() + size_);
        size_ += taken;
        return *this;
    }

    std::string_view view() const { return {bytes_.data(), size_}; }

private:
    // What a pipe that has room at all takes in one piece.
    std::array<char, 4096> bytes_{};
    std::size_t size_ = 0;
};

}  // namespace vesk::commandline
