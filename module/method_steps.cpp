// SPDX-License-Identifier: MIT
// The steps that the methods of both archive classes share.
#include "module/method_steps.h"

#include <string>
#include <system_error>
#include <utility>

#include "fileaccess/archive_destination.h"
#include "module/host/failure.h"
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

}  // namespace vesk::io::archives
