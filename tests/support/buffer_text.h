// SPDX-License-Identifier: MIT
// Bytes of a ByteBuffer as a std::string and back, so that tests compare them with literals.
#pragma once

#include <string>
#include <string_view>

#include "fileaccess/byte_buffer.h"

namespace vesk::testing {

/// Returns the bytes of `buffer`.
inline std::string asText(const io::archives::ByteBuffer& buffer) {
    return std::string(buffer.begin(), buffer.end());
}

/// Returns a buffer that holds the bytes of `text`.
inline io::archives::ByteBuffer asBuffer(std::string_view text) {
    io::archives::ByteBuffer buffer;
    buffer.append(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    return buffer;
}

}  // namespace vesk::testing
