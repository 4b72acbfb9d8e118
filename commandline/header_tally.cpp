// SPDX-License-Identifier: MIT
// Skipping from header to header.
#include "commandline/header_tally.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vesk::commandline {

namespace {

std::string_view textAt(std::span<const std::uint8_t> header, std::size_t offset,
                        std::size_t width) {
    const auto field = header.subspan(offset, width);
    const std::string_view text(reinterpret_cast<const char*>(field.data()), width);
    return text.substr(0, text.find('\0'));
}

/// Reads the octal digits of a field, between any NULs and spaces. Nothing if it holds other bytes.
std::optional<std::uint64_t> numberAt(std::span<const std::uint8_t> header, std::size_t offset,
                                      std::size_t width) {
    const auto field = header.subspan(offset, width);
    const auto isFiller = [](std::uint8_t byte) { return byte == 0 || byte == ' '; };
    std::uint64_t number = 0;
    auto at = std::find_if_not(field.begin(), field.end(), isFiller);
    for (; at != field.end() && !isFiller(*at); ++at) {
        if (*at < '0' || *at > '7') return std::nullopt;
        number = number * 8 + (*at - '0');
    }
    return number;
}

std::string nameIn(std::span<const std::uint8_t> header) {
    std::string name(textAt(header, 345, 155));
    if (!name.empty()) name += '/';
    return name.append(textAt(header, 0, 100));
}

}  // namespace

void HeaderTally::take(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty() && !hasEnded_ && !isLost_) {
        if (toLeaveOut_ > 0) {
            const std::uint64_t count = std::min<std::uint64_t>(toLeaveOut_, bytes.size());
            toLeaveOut_ -= count;
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        } else if (begunSize_ == 0 && bytes.size() >= blockSize) {
            takeHeader(bytes.first<blockSize>());
            bytes = bytes.subspan(blockSize);
        } else {
            const std::size_t count = std::min(blockSize - begunSize_, bytes.size());
            std::copy_n(bytes.begin(), count,
                        begun_.begin() + static_cast<std::ptrdiff_t>(begunSize_));
            begunSize_ += count;
            bytes = bytes.subspan(count);
            if (begunSize_ < blockSize) return;
            begunSize_ = 0;
            takeHeader(begun_);
        }
    }
}

void HeaderTally::takeHeader(Block header) {
    hasEnded_ = header[0] == 0 && std::all_of(header.begin(), header.end(),
                                              [](std::uint8_t byte) { return byte == 0; });
    const auto size = numberAt(header, 124, 12);
    isLost_ = !size;
    if (hasEnded_ || isLost_) return;

    ++entries_;
    toLeaveOut_ = (*size + blockSize - 1) / blockSize * blockSize;
    const std::uint8_t type = header[156];
    const bool isFile = type == '0' || type == 0;
    if (isFile && (numberAt(header, 100, 8).value_or(0) & 0111) != 0 && executables_.count++ == 0)
        executables_.first = nameIn(header);
}

std::uint64_t HeaderTally::leaveOut() {
    return std::exchange(toLeaveOut_, 0);
}

// A read costs as much as copying a few thousand bytes, so one read covers several small entries.
void HeaderTally::takeFile(int descriptor, const std::atomic<bool>& isStopped) {
    constexpr std::uint64_t smallEntry = 1024;
    std::array<std::uint8_t, 4 * smallEntry> buffer{};
    std::uint64_t offset = 0;
    std::size_t wanted = buffer.size();
    while (!hasEnded_ && !isLost_ && !isStopped) {
        const ssize_t count = pread(descriptor, buffer.data(), wanted, static_cast<off_t>(offset));
        if (count <= 0) return;
        take({buffer.data(), static_cast<std::size_t>(count)});
        const std::uint64_t hop = leaveOut();
        offset += static_cast<std::uint64_t>(count) + hop;
        wanted = hop < smallEntry ? buffer.size() : blockSize;
    }
}

}  // namespace vesk::commandline
