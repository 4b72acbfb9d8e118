// SPDX-License-Identifier: MIT
// Describes an entry that is refused, and what can be done about it.
#pragma once

#include <cstdint>
#include <string>

#include "explanation/advice.h"
#include "tar/ustar_header.h"

namespace vesk::explanation {

/// What is wrong, in the words for one line, and what helps.
struct Trouble {
    std::string words;
    Remedy remedy = Remedy::nothing;
};

/// Describes an entry whose typeflag is neither that of a file nor that of a directory. `block` is
/// its header, `tarBlockSize` bytes.
Trouble kindTrouble(const std::uint8_t* block);

/// Says why a name is unsafe; the words are empty for a safe one. `name` is as the module takes it
/// from a header: without slashes at its end.
Trouble nameTrouble(const std::string& name);

/// Returns whether the name fits into a ustar header.
bool fitsHeader(const std::string& name);

}  // namespace vesk::explanation
