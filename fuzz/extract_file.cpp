// SPDX-License-Identifier: MIT
// Fuzz target: TarArchiver.unpackArchive unpacks a file of any bytes.
#include <cstdint>

#include "fuzz/tar_model.h"
#include "fuzz/unpack_box.h"
#include "module/native_methods.h"

namespace fuzzing = vesk::fuzzing;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzzing::UnpackBox box;
    const std::string_view archive(reinterpret_cast<const char*>(data), size);
    fuzzing::writeArchive(box.archive(), archive);
    vesk_io_archives_TarArchiver_unpackArchive(nullptr, box.archive().c_str(),
                                               box.destination().c_str(), nullptr);
    box.requireOutcome(fuzzing::expectedExtraction(archive), fuzzing::takeMessage());
    return 0;
}
