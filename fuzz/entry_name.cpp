// SPDX-License-Identifier: MIT
// Fuzz target: the rules for entry names, compared with a second set that works by components.
#include "tar/entry_name.h"

#include <cstdint>

#include "fuzz/require.h"
#include "fuzz/tar_model.h"

namespace fuzzing = vesk::fuzzing;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string name(reinterpret_cast<const char*>(data), size);
    name.erase(name.find_last_not_of('/') + 1);
    const bool safe = vesk::io::archives::tarIsSafeEntryName(name);
    fuzzing::require(safe == fuzzing::expectedComponents(name).has_value(),
                     "a name is safe if its components are", name);
    return 0;
}
