// SPDX-License-Identifier: MIT
// The native methods of io.archives.TarArchiver.
#include <string>

#include "fileaccess/archive_destination.h"
#include "module/method_steps.h"
#include "module/native_methods.h"

using namespace vesk::io::archives;

void vesk_io_archives_TarArchiver_makeArchive(void* /*context*/, const char* sourcePath,
                                              const char* archivePath, void* mode) {
    if (const auto archive = buildNewArchive(sourcePath, archivePath, mode)) {
        archiveWriteFileBytes(archive->path, archive->tarBytes);
    }
}

void vesk_io_archives_TarArchiver_unpackArchive(void* /*context*/, const char* archivePath,
                                                const char* destinationPath, void* mode) {
    if (const auto archive = readArchive(archivePath)) {
        std::string errorText;
        unpackTarBytes(*archive, destinationPath, mode, errorText);
    }
}
