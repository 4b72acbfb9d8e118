// SPDX-License-Identifier: MIT
// What a file is that is no TAR archive, by the bytes that it begins with.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace vesk::explanation {

struct FileKind {
    /// With its article, as "a zip archive"; empty when the bytes tell nothing.
    std::string name;
    /// Archive readers that know many formats can make a TAR archive of it.
    bool isConvertible = false;
};

FileKind kindOfBytes(std::span<const std::uint8_t> beginning);

}  // namespace vesk::explanation
