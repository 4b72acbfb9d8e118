// SPDX-License-Identifier: MIT
// Fuzz target: unpacks a TAR stream in memory. The mutator keeps the headers' checksums right, so
// that the code after that check is reached.
#include <cstdint>
#include <string>

#include "fuzz/require.h"
#include "fuzz/tar_model.h"
#include "fuzz/unpack_box.h"
#include "tar/staged_extraction.h"

namespace fuzzing = vesk::fuzzing;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzzing::UnpackBox box;
    const std::string before = "what was there";
    std::string errorText = before;
    const bool unpacked = vesk::io::archives::tarUnpackArchiveBytes(
        {data, size}, box.destination().c_str(), false, errorText);

    const std::string_view archive(reinterpret_cast<const char*>(data), size);
    const fuzzing::Expected expected = fuzzing::expectedExtraction(archive);
    fuzzing::require(!unpacked || errorText == before, "success leaves the error text alone");
    box.requireOutcome(expected, unpacked ? std::nullopt : std::optional<std::string>(errorText));
    return 0;
}
