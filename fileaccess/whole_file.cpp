// SPDX-License-Identifier: MIT
// Reading a whole file: asks for its size once, then reads straight into the buffer.
#include "fileaccess/whole_file.h"

#include <cstdint>
#include <streambuf>

#include "module/host/failure.h"

namespace vesk::io::archives {

namespace {

bool raiseUnreadable(const std::string& path) {
    return raiseFailure(("Cannot read file: " + path).c_str());
}

bool appendOpenFile(const std::string& path, std::ifstream& file, ByteBuffer& bytes) {
    std::streambuf& content = *file.rdbuf();
    // An unknown size is reported as -1, which as an unsigned number exceeds the limit.
    const std::streamoff end = content.pubseekoff(0, std::ios::end, std::ios::in);
    const auto size = static_cast<std::uint64_t>(end);
    if (size > 0xFFFFFFFF) return raiseFailure("ZIP entry is too large for ZIP32");
    if (std::streamoff(content.pubseekoff(0, std::ios::beg, std::ios::in)) != 0) {
        return raiseUnreadable(path);
    }

    if (size == 0) return true;
    std::uint8_t* const room = bytes.extend(static_cast<std::size_t>(size));
    file.read(reinterpret_cast<char*>(room), static_cast<std::streamsize>(size));
    return (!file.fail() && file.gcount() == end) || raiseUnreadable(path);
}

}  // namespace

void zipReadFileBytes(const std::string& path, ByteFile<std::ifstream>& file, ByteBuffer& bytes) {
    file.open(path, std::ios::in);
    if (file.stream().fail()) {
        raiseUnreadable(path);
        return;
    }
    appendOpenFile(path, file.stream(), bytes);
    file.stream().close();
}

}  // namespace vesk::io::archives
