// SPDX-License-Identifier: MIT
// Building a TAR stream: entry by entry, then the end marker.
#include "tar/stream_builder.h"

#include <span>

#include "fileaccess/whole_file.h"
#include "module/host/failure.h"
#include "tar/entry_collection.h"
#include "tar/header_block.h"

namespace vesk::io::archives {

namespace {

// Appends the header block, the data and its padding. Returns false when an exception is pending.
bool appendEntry(const ArchiveEntryInfo& entry, ByteFile<std::ifstream>& file, ByteBuffer& stream) {
    // The data is read straight into the stream. The header comes before it, but needs its size.
    const std::size_t start = stream.size();
    stream.extend(tarBlockSize);
    zipReadFileBytes(entry.sourcePath, file, stream);
    if (Vesk_hasPendingError() != 0) return false;

    const std::size_t size = stream.size() - start - tarBlockSize;
    const std::span<std::uint8_t, tarBlockSize> header(stream.data() + start, tarBlockSize);
    tarBuildHeaderBlock(entry.entryName, size, header);
    if (Vesk_hasPendingError() != 0) return false;

    stream.appendZeros(tarPaddingAfter(size));
    return true;
}

}  // namespace

ByteBuffer tarBuildArchiveBytes(const char* sourcePath) {
    if (sourcePath == nullptr || *sourcePath == '\0') {
        raiseFailure("Source path is required");
        return {};
    }

    const std::vector<ArchiveEntryInfo> entries =
        collectArchiveEntries(Vesk_runtimeFsPath(sourcePath));
    if (Vesk_hasPendingError() != 0) return {};

    ByteFile<std::ifstream> file;
    ByteBuffer stream;
    for (const ArchiveEntryInfo& entry : entries) {
        if (!appendEntry(entry, file, stream)) return {};
    }
    stream.appendZeros(tarEndMarkerSize);
    return stream;
}

}  // namespace vesk::io::archives
