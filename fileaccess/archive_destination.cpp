// SPDX-License-Identifier: MIT
// The file of a new archive: checks before the work, one write after it.
#include "fileaccess/archive_destination.h"

#include <fstream>
#include <system_error>

#include "fileaccess/byte_file.h"
#include "module/host/failure.h"

namespace vesk::io::archives {

namespace {

bool createArchiveParent(const std::filesystem::path& archivePath) {
    const std::filesystem::path parent = archivePath.parent_path();
    if (parent.empty()) return true;

    std::error_code error;
    std::filesystem::create_directories(parent, error);
    if (error) return raiseFailure("Cannot create archive parent directory");
    return true;
}

}  // namespace

bool archivePrepareArchivePath(const std::filesystem::path& archivePath, bool overwrite) {
    std::error_code error;
    const bool exists = std::filesystem::exists(archivePath, error);
    if (error) return raiseFailure("Cannot inspect archive destination");

    if (exists && !overwrite) return raiseFailure("Archive already exists");

    return createArchiveParent(archivePath);
}

void archiveWriteFileBytes(const std::filesystem::path& archivePath, const ByteBuffer& bytes) {
    if (!createArchiveParent(archivePath)) return;

    ByteFile<std::ofstream> archive;
    archive.open(archivePath.native(), std::ios::out | std::ios::trunc);
    std::ofstream& file = archive.stream();
    if (file.fail()) {
        raiseFailure("Cannot create archive");
        return;
    }

    if (bytes.size() > 0) {
        file.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }
    file.close();
    if (!file.good()) raiseFailure("Cannot finalize archive");
}

}  // namespace vesk::io::archives
