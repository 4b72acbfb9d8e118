// SPDX-License-Identifier: MIT
// The steps that the methods of both archive classes share.
#include "module/method_steps.h"

#include <system_error>
#include <utility>

#include "fileaccess/archive_destination.h"
#include "fileaccess/whole_file.h"
#include "module/host/failure.h"
#include "tar/staged_extraction.h"
#include "tar/stream_builder.h"

namespace vesk::io::archives {

namespace {

bool requireArchivePath(const char* archivePath) {
    if (archivePath == nullptr || *archivePath == '\0') {
        return raiseFailure("Archive path is required");
    }
    return true;
}

}  // namespace

std::optional<NewArchive> buildNewArchive(const char* sourcePath, const char* archivePath,
                                          void* mode) {
    if (!requireArchivePath(archivePath)) return std::nullopt;

    std::filesystem::path path = Vesk_runtimeFsPath(archivePath);
    const bool overwrite = vesk::runtime::archives::modeIsOverwrite(mode);
    if (!archivePrepareArchivePath(path, overwrite)) return std::nullopt;

    ByteBuffer tarBytes = tarBuildArchiveBytes(sourcePath);
    if (Vesk_hasPendingError() != 0) return std::nullopt;
    return NewArchive{std::move(path), std::move(tarBytes)};
}

std::optional<ByteBuffer> readArchive(const char* archivePath) {
    if (!requireArchivePath(archivePath)) return std::nullopt;

    const std::filesystem::path path = Vesk_runtimeFsPath(archivePath);
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        raiseFailure("Archive file does not exist");
        return std::nullopt;
    }

    ByteFile<std::ifstream> file;
    ByteBuffer bytes;
    zipReadFileBytes(path.native(), file, bytes);
    if (Vesk_hasPendingError() != 0) return std::nullopt;
    return bytes;
}

void unpackTarBytes(std::span<const std::uint8_t> tarBytes, const char* destinationPath, void* mode,
                    std::string& errorText) {
    const bool overwrite = vesk::runtime::archives::modeIsOverwrite(mode);
    if (!tarUnpackArchiveBytes(tarBytes, destinationPath, overwrite, errorText)) {
        raiseFailure(errorText.c_str());
    }
}

}  // namespace vesk::io::archives
