// SPDX-License-Identifier: MIT
// What an entry is that is refused, in words, and what can be done about it.
#pragma once

#include <cstdint>
#include <string>

#include "explanation/advice.h"
#include "tar/ustar_header.h"

namespace vesk::explanation {

/// One line's words on what is wrong, and what helps.
struct Trouble {
    std::string words;
    Remedy remedy = Remedy::nothing;
};

/// Says what an entry is whose typeflag is neither that of a file nor that of a directory. `block`
/// is its header, `tarBlockSize` bytes.
Trouble kindTrouble(const std::uint8_t* block);

/// Says why the name is unsafe, `name` being as the module takes it from a header, without slashes
/// at its end. No words for a safe one.
Trouble nameTrouble(const std::string& name);

/// Says whether the name fits an ustar header.
bool fitsHeader(const std::string& name);

}  // namespace vesk::explanation
