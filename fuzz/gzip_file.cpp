// SPDX-License-Identifier: MIT
// Fuzz target: TgzArchiver.unpackArchive unpacks a file of any bytes. The mutator keeps checksums
// right, so that the code after those checks is reached.
#include <cstdint>

#include "fuzz/gzip_model.h"
#include "fuzz/require.h"
#include "fuzz/tar_model.h"
#include "fuzz/unpack_box.h"
#include "module/native_methods.h"

namespace fuzzing = vesk::fuzzing;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The content can be up to 1032 times as long.
    if (size > 16384) return 0;
    static fuzzing::UnpackBox box;
    const std::string_view file(reinterpret_cast<const char*>(data), size);
    fuzzing::writeArchive(box.archive(), file);
    vesk_io_archives_TgzArchiver_unpackArchive(nullptr, box.archive().c_str(),
                                               box.destination().c_str(), nullptr);

    const std::optional<std::string> message = fuzzing::takeMessage();
    const fuzzing::ExpectedContent expected = fuzzing::expectedContent(file);
    if (expected.refusals.empty()) {
        box.requireOutcome(fuzzing::expectedExtraction(expected.content), message);
    } else {
        fuzzing::require(message && expected.refusals.contains(*message),
                         "a bad member is refused with its reason", message.value_or("success"));
        box.requireOutcome({*message, {}}, message);
    }
    return 0;
}
