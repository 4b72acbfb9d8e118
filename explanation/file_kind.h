// SPDX-License-Identifier: MIT
// Recognises a file that is no TAR archive by its first bytes.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace vesk::explanation {

struct FileKind {
    /// With its article, such as "a zip archive"; empty if the kind is unknown.
    std::string name;
    /// bsdtar can unpack it, if it is an archive.
    bool isReadable = false;
};

FileKind kindOfBytes(std::span<const std::uint8_t> beginning);

}  // namespace vesk::explanation
