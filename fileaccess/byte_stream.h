// SPDX-License-Identifier: MIT
// Opening file streams for bytes, whatever locale the host's program has made the global one.
#pragma once

#include <filesystem>
#include <ios>
#include <locale>
#include <streambuf>

namespace vesk::io::archives {

/// Opens `file`, a file stream that is not open, at `path` in binary mode and `mode`; a failure
/// shows in its state.
///
/// A file stream starts with the global locale, whose facet for character codes may convert what
/// is read and written. The classic one converts nothing. It is given to the buffer alone, which
/// moves the bytes, and only where that has another: taking one on costs more than looking.
template <typename FileStream>
void openForBytes(FileStream& file, const std::filesystem::path& path, std::ios::openmode mode) {
    std::streambuf& buffer = *file.rdbuf();
    if (buffer.getloc() != std::locale::classic()) buffer.pubimbue(std::locale::classic());
    file.open(path.native(), std::ios::binary | mode);
}

}  // namespace vesk::io::archives
