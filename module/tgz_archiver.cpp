// SPDX-License-Identifier: MIT
// The native methods of io.archives.TgzArchiver.
#include <string>
#include <utility>

#include "fileaccess/archive_destination.h"
#include "gzip/member_reader.h"
#include "gzip/member_writer.h"
#include "module/host/failure.h"
#include "module/method_steps.h"
#include "module/native_methods.h"

using namespace vesk::io::archives;

void vesk_io_archives_TgzArchiver_makeArchive(void* /*context*/, const char* sourcePath,
                                              const char* archivePath, void* mode) {
    if (const auto archive = buildNewArchive(sourcePath, archivePath, mode)) {
        archiveWriteFileBytes(archive->path, gzipWriteMember(archive->tarBytes));
    }
}

void vesk_io_archives_TgzArchiver_unpackArchive(void* /*context*/, const char* archivePath,
                                                const char* destinationPath, void* mode) {
    auto archive = readArchive(archivePath);
    if (!archive) return;

    GzipContent tarBytes;
    std::string errorText;
    if (!gzipReadMember(std::move(*archive), tarBytes, errorText)) {
        raiseFailure(errorText.c_str());
        return;
    }
    unpackTarBytes({reinterpret_cast<const std::uint8_t*>(tarBytes.data()), tarBytes.size()},
                   destinationPath, mode, errorText);
}
