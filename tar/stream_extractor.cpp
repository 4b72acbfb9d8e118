// SPDX-License-Identifier: MIT
// Reading a TAR stream: one entry after another, each checked before it is made.
#include "tar/stream_extractor.h"

#include <algorithm>
#include <fstream>
#include <limits>
#include <optional>
#include <system_error>

#include "fileaccess/byte_stream.h"
#include "module/host/failure.h"
#include "tar/entry_name.h"
#include "tar/header_block.h"
#include "tar/octal_field.h"

namespace vesk::io::archives {

namespace {

namespace fs = std::filesystem;

using HeaderBlock = std::span<const std::uint8_t, tarBlockSize>;

template <typename Field>
std::optional<std::uint64_t> readOctal(HeaderBlock block) {
    return tarParseOctal(Field::in(block.data()), Field::width);
}

bool isZeroBlock(HeaderBlock block) {
    return std::all_of(block.begin(), block.end(), [](std::uint8_t byte) { return byte == 0; });
}

bool makeDirectory(const fs::path& target, std::string& errorText) {
    std::error_code error;
    fs::create_directories(target, error);
    if (error) return reportFailure(errorText, "Cannot create TAR directory");
    return true;
}

// Opens `file` at `target`. Its directory is there for all but the first file in it, so it is not
// looked at before the file cannot be opened, and another try is made only where it was missing.
bool openRegularFile(std::ofstream& file, const fs::path& target, std::string& errorText) {
    const auto open = [&] { openForBytes(file, target, std::ios::out | std::ios::trunc); };
    // Only a root without a name leaves a target without a parent: nothing is made there.
    if (target.has_parent_path()) open();
    if (file.is_open()) return true;

    std::error_code error;
    const bool created = fs::create_directories(target.parent_path(), error);
    if (error) return reportFailure(errorText, "Cannot create TAR entry directory");

    if (created) open();
    if (!file.is_open()) return reportFailure(errorText, "Cannot write TAR entry");
    return true;
}

bool makeRegularFile(const fs::path& target, std::span<const std::uint8_t> data,
                     std::string& errorText) {
    std::ofstream file;
    if (!openRegularFile(file, target, errorText)) return false;

    if (!data.empty()) {
        // Cannot be on a platform with 64-bit sizes: twelve octal digits are 36 bits.
        if (data.size() > std::size_t{std::numeric_limits<std::streamsize>::max()}) {
            return reportFailure(errorText, "TAR entry is too large for this platform");
        }
        file.write(reinterpret_cast<const char*>(data.data()),
                   static_cast<std::streamsize>(data.size()));
    }
    file.close();
    if (!file.good()) return reportFailure(errorText, "Cannot finalize TAR entry");
    return true;
}

bool makeEntry(std::uint8_t typeflag, const fs::path& target, std::span<const std::uint8_t> data,
               std::string& errorText) {
    switch (typeflag) {
        case tarDirectory:
            return makeDirectory(target, errorText);
        case tarOldRegularFile:
        case tarRegularFile:
            return makeRegularFile(target, data, errorText);
        default:
            return reportFailure(errorText, "Unsupported TAR entry type");
    }
}

// Extracts the entry with the header `block` and moves `rest`, which begins right after that block,
// past the entry's data and padding. `root` is in its normal form, and stays so with a safe name in
// its own normal form below it.
bool extractEntry(HeaderBlock block, std::span<const std::uint8_t>& rest, const fs::path& root,
                  std::string& errorText) {
    if (readOctal<TarChksum>(block) != tarHeaderChecksum(block)) {
        return reportFailure(errorText, "Invalid TAR header checksum");
    }

    const std::string entryName = tarReadEntryName(block);
    if (!tarIsSafeEntryName(entryName)) return reportFailure(errorText, "Unsafe TAR entry name");

    const std::optional<std::uint64_t> size = readOctal<TarSize>(block);
    if (!size) return reportFailure(errorText, "Invalid TAR entry size");
    if (*size > rest.size()) return reportFailure(errorText, "Truncated TAR entry");
    const std::span<const std::uint8_t> data = rest.first(static_cast<std::size_t>(*size));
    rest = rest.subspan(data.size());

    const fs::path target = root / Vesk_runtimeFsPath(entryName.c_str()).lexically_normal();
    if (!makeEntry(*TarTypeflag::in(block.data()), target, data, errorText)) return false;

    const std::size_t padding = tarPaddingAfter(*size);
    if (padding > rest.size()) return reportFailure(errorText, "Truncated TAR entry padding");
    rest = rest.subspan(padding);
    return true;
}

}  // namespace

bool tarExtractArchiveBytes(std::span<const std::uint8_t> archive, const fs::path& root,
                            std::string& errorText) {
    const fs::path normalRoot = root.lexically_normal();
    std::span<const std::uint8_t> rest = archive;
    while (rest.size() >= tarBlockSize) {
        const HeaderBlock block = rest.first<tarBlockSize>();
        if (isZeroBlock(block)) return true;

        rest = rest.subspan(tarBlockSize);
        if (!extractEntry(block, rest, normalRoot, errorText)) return false;
    }
    return reportFailure(errorText, "TAR archive has no end marker");
}

}  // namespace vesk::io::archives
