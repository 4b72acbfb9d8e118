// SPDX-License-Identifier: MIT
// Reading a file whole: its size once, then one allocation and one read.
#include "fileaccess/whole_file.h"

#include <cstdint>
#include <fstream>
#include <string>

#include "fileaccess/byte_stream.h"
#include "module/host/failure.h"

namespace vesk::io::archives {

namespace {

ByteBuffer raiseUnreadable(const std::filesystem::path& path) {
    raiseFailure(("Cannot read file: " + path.native()).c_str());
    return {};
}

}  // namespace

ByteBuffer zipReadFileBytes(const std::filesystem::path& path) {
    std::ifstream file;
    openForBytes(file, path, std::ios::in);
    if (file.fail()) return raiseUnreadable(path);

    std::streambuf& content = *file.rdbuf();
    // A size that cannot be told comes as -1, which is above the bound once it is unsigned.
    const std::streamoff end = content.pubseekoff(0, std::ios::end, std::ios::in);
    const auto size = static_cast<std::uint64_t>(end);
    if (size > 0xFFFFFFFF) {
        raiseFailure("ZIP entry is too large for ZIP32");
        return {};
    }
    if (std::streamoff(content.pubseekoff(0, std::ios::beg, std::ios::in)) != 0) {
        return raiseUnreadable(path);
    }

    ByteBuffer bytes;
    if (size > 0) {
        std::uint8_t* const room = bytes.extend(static_cast<std::size_t>(size));
        file.read(reinterpret_cast<char*>(room), static_cast<std::streamsize>(size));
        if (file.fail() || file.gcount() != end) return raiseUnreadable(path);
    }
    return bytes;
}

}  // namespace vesk::io::archives
