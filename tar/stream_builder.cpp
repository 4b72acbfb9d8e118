// SPDX-License-Identifier: MIT
// Building a TAR stream: entry by entry, then the end marker.
#include "tar/stream_builder.h"

#include <array>

#include "fileaccess/whole_file.h"
#include "module/host/failure.h"
#include "tar/entry_collection.h"
#include "tar/header_block.h"

namespace vesk::io::archives {

namespace {

// Appends the header block, the data and its padding; false when an exception is pending.
bool appendEntry(ByteBuffer& stream, const ArchiveEntryInfo& entry) {
    const ByteBuffer data = zipReadFileBytes(entry.sourcePath);
    if (Vesk_hasPendingError() != 0) return false;

    std::array<std::uint8_t, tarBlockSize> header{};
    tarBuildHeaderBlock(entry.entryName, data.size(), header);
    if (Vesk_hasPendingError() != 0) return false;

    stream.append(header.data(), header.size());
    stream.append(data.data(), data.size());
    stream.appendZeros(tarPaddingAfter(data.size()));
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

    ByteBuffer stream;
    for (const ArchiveEntryInfo& entry : entries) {
        if (!appendEntry(stream, entry)) return {};
    }
    stream.appendZeros(tarEndMarkerSize);
    return stream;
}

}  // namespace vesk::io::archives
