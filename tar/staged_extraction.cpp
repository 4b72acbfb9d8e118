// SPDX-License-Identifier: MIT
// Extraction through the runtime's staging directory.
#include "tar/staged_extraction.h"

#include <filesystem>

#include "module/host/failure.h"
#include "tar/stream_extractor.h"

namespace vesk::io::archives {

bool tarUnpackArchiveBytes(std::span<const std::uint8_t> archive, const char* destinationPath,
                           bool overwrite, std::string& errorText) {
    namespace staging = vesk::runtime::archives;

    if (destinationPath == nullptr || *destinationPath == '\0') {
        return reportFailure(errorText, "Destination path is required");
    }

    const std::filesystem::path destination = Vesk_runtimeFsPath(destinationPath);
    std::filesystem::path root;
    if (!staging::prepareExtractionStaging(destination, overwrite, root, errorText)) return false;

    if (tarExtractArchiveBytes(archive, root, errorText) &&
        staging::commitExtractionStaging(root, destination, errorText)) {
        return true;
    }
    staging::removeExtractionTree(root);
    return false;
}

}  // namespace vesk::io::archives
