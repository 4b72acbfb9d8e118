// SPDX-License-Identifier: MIT
// ByteFile: a file stream for bytes, whatever global locale the host has set.
#pragma once

#include <array>
#include <cstdio>
#include <fstream>
#include <ios>
#include <locale>
#include <string>

namespace vesk::io::archives {

/// Holds a file stream, std::ifstream or std::ofstream, that is opened for one file after another.
/// Constructing a stream costs more than opening it.
template <typename FileStream>
class ByteFile {
public:
    ByteFile() { prepare(); }
    ByteFile(const ByteFile&) = delete;
    ByteFile& operator=(const ByteFile&) = delete;
    ~ByteFile() = default;

    /// Opens the file at `path`, the native text of a path, in binary mode and `mode`. The stream
    /// must not be open. A failure sets the stream's failbit.
    void open(const std::string& path, std::ios::openmode mode) {
#ifdef _LIBCPP_VERSION
        // When a stream of this library is closed, it drops its buffer for good. It would read or
        // write the next file byte by byte.
        stream_ = FileStream();
        prepare();
#endif
        stream_.open(path, std::ios::binary | mode);
    }

    FileStream& stream() {
        return stream_;
    }

private:
    void prepare() {
        // A file stream starts with the global locale, which may convert what is read and written.
        // The classic locale converts nothing. Only the buffer's locale matters for bytes.
        stream_.rdbuf()->pubimbue(std::locale::classic());
        // Otherwise each call of open() allocates a buffer.
        stream_.rdbuf()->pubsetbuf(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    }

    std::array<char, BUFSIZ> buffer_{};  // declared first, so that the stream is destroyed first
    FileStream stream_;
};

}  // namespace vesk::io::archives
