// SPDX-License-Identifier: MIT
// Reading a regular file in order, through a buffer; skipping only moves the position.
#include "explanation/byte_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace vesk::explanation {

namespace {

constexpr std::size_t bufferSize = 64UL * 1024;

}  // namespace

std::unique_ptr<FileSource> FileSource::open(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (descriptor == -1) return nullptr;
    // The path may name another file by now.
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(descriptor);
        return nullptr;
    }
    return std::unique_ptr<FileSource>(
        new FileSource(descriptor, static_cast<std::uint64_t>(status.st_size)));
}

FileSource::FileSource(int descriptor, std::uint64_t size) : descriptor_(descriptor), size_(size) {}

FileSource::~FileSource() {
    close(descriptor_);
}

/// Fills the buffer from the position on. It stays empty if nothing can be read there.
void FileSource::fill() {
    buffer_.resize(bufferSize);
    bufferBegin_ = position_;
    const auto wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(bufferSize, size_ - position_));
    const ssize_t got = pread(descriptor_, buffer_.data(), wanted, static_cast<off_t>(position_));
    bufferLength_ = got > 0 ? static_cast<std::size_t>(got) : 0;
}

std::size_t FileSource::read(std::uint8_t* to, std::size_t count) {
    std::size_t done = 0;
    while (done < count && position_ < size_) {
        const bool isBuffered =
            position_ >= bufferBegin_ && position_ < bufferBegin_ + bufferLength_;
        if (!isBuffered) fill();
        const auto at = static_cast<std::size_t>(position_ - bufferBegin_);
        const std::size_t length = std::min(count - done, bufferLength_ - at);
        if (length == 0) break;
        std::copy_n(buffer_.data() + at, length, to + done);
        done += length;
        position_ += length;
    }
    return done;
}

std::uint64_t FileSource::skip(std::uint64_t count) {
    const std::uint64_t length = std::min(count, size_ - position_);
    position_ += length;
    return length;
}

}  // namespace vesk::explanation
