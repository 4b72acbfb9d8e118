// SPDX-License-Identifier: MIT
// ByteFile: a file stream for bytes, whatever locale the host's program has made the global one.
#pragma once

#include <array>
#include <cstdio>
#include <fstream>
#include <ios>
#include <locale>
#include <string>

namespace vesk::io::archives {

/// Holds a file stream, std::ifstream or std::ofstream, that is opened for one file after another:
/// making a stream costs more than opening it.
template <typename FileStream>
class ByteFile {
public:
    ByteFile() {
        // A file stream starts with the global locale, whose facet for character codes may convert
        // what is read and written. The classic one converts nothing. The buffer alone moves bytes.
        stream_.rdbuf()->pubimbue(std::locale::classic());
        // Otherwise each opening allocates a buffer.
        stream_.rdbuf()->pubsetbuf(buffer_.data(), buffer_.size());
    }

    ByteFile(const ByteFile&) = delete;
    ByteFile& operator=(const ByteFile&) = delete;
    ~ByteFile() = default;

    /// Opens the stream, which is not open, at `path`, a path's native text, in binary mode and
    /// `mode`. A failure shows in its state.
    void open(const std::string& path, std::ios::openmode mode) {
        stream_.open(path, std::ios::binary | mode);
    }

    FileStream& stream() { return stream_; }

private:
    std::array<char, BUFSIZ> buffer_;  // the stream's, so that it outlives it
    FileStream stream_;
};

}  // namespace vesk::io::archives
