// SPDX-License-Identifier: MIT
// A text of bounded length that a signal handler can put together.
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

namespace vesk::commandline {

/// Text in its own buffer: nothing is allocated. What does not fit is cut off.
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
    // A pipe accepts this many bytes at once or none.
    std::array<char, 4096> bytes_{};
    std::size_t size_ = 0;
};

}  // namespace vesk::commandline
