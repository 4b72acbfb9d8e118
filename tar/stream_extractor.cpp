// SPDX-License-Identifier: MIT
// Reading a TAR stream: each entry is checked, then made.
#include "tar/stream_extractor.h"

#include <algorithm>
#include <fstream>
#include <limits>
#include <optional>
#include <system_error>

#include "fileaccess/byte_file.h"
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

// Returns the text that is put before a normalised name to give a normalised target: the normalised
// root with a slash at its end; nothing if the root's normal form is "." or empty.
std::string targetPrefix(const fs::path& root) {
    std::string prefix = root.lexically_normal().native();
    if (prefix == ".") return {};
    if (!prefix.empty() && prefix.back() != '/') prefix += '/';
    return prefix;
}

class Extraction {
public:
    Extraction(const fs::path& root, std::string& errorText)
        : prefix_(targetPrefix(root)), errorText_(errorText) {}

    // Extracts the entry with the header `block` and moves `rest`, which begins right after that
    // block, past the entry's data and padding.
    bool extractEntry(HeaderBlock block, std::span<const std::uint8_t>& rest);

private:
    bool makeDirectory(const std::string& target);
    bool openRegularFile(const std::string& target);
    bool makeRegularFile(const std::string& target, std::span<const std::uint8_t> data);
    bool makeEntry(std::uint8_t typeflag, const std::string& target,
                   std::span<const std::uint8_t> data);

    const std::string prefix_;
    ByteFile<std::ofstream> file_;
    std::string& errorText_;
};

bool Extraction::makeDirectory(const std::string& target) {
    std::error_code error;
    fs::create_directories(target, error);
    if (error) return reportFailure(errorText_, "Cannot create TAR directory");
    return true;
}

// The directory exists for all files but the first one in it. So the file is opened at once. Only
// if that fails is the directory made, and only if it was missing is the file opened again.
bool Extraction::openRegularFile(const std::string& target) {
    const auto open = [&] { file_.open(target, std::ios::out | std::ios::trunc); };
    // A target without a slash comes only from a root whose normal form is "." or empty. No file is
    // made directly in such a root.
    if (target.find('/') != std::string::npos) open();
    if (file_.stream().is_open()) return true;

    std::error_code error;
    const bool created = fs::create_directories(fs::path(target).parent_path(), error);
    if (error) return reportFailure(errorText_, "Cannot create TAR entry directory");

    if (created) open();
    if (!file_.stream().is_open()) return reportFailure(errorText_, "Cannot write TAR entry");
    return true;
}

bool Extraction::makeRegularFile(const std::string& target, std::span<const std::uint8_t> data) {
    if (!openRegularFile(target)) return false;

    std::ofstream& stream = file_.stream();
    if (!data.empty()) {
        // Unreachable with a 64-bit streamsize: twelve octal digits are 36 bits.
        if (data.size() > std::size_t{std::numeric_limits<std::streamsize>::max()}) {
            return reportFailure(errorText_, "TAR entry is too large for this platform");
        }
        stream.write(reinterpret_cast<const char*>(data.data()),
                     static_cast<std::streamsize>(data.size()));
    }
    stream.close();
    if (!stream.good()) return reportFailure(errorText_, "Cannot finalize TAR entry");
    return true;
}

bool Extraction::makeEntry(std::uint8_t typeflag, const std::string& target,
                           std::span<const std::uint8_t> data) {
    switch (typeflag) {
        case tarDirectory:
            return makeDirectory(target);
        case tarOldRegularFile:
        case tarRegularFile:
            return makeRegularFile(target, data);
        default:
            return reportFailure(errorText_, "Unsupported TAR entry type");
    }
}

bool Extraction::extractEntry(HeaderBlock block, std::span<const std::uint8_t>& rest) {
    if (readOctal<TarChksum>(block) != tarHeaderChecksum(block)) {
        return reportFailure(errorText_, "Invalid TAR header checksum");
    }

    const std::string entryName = tarReadEntryName(block);
    if (!tarIsSafeEntryName(entryName)) return reportFailure(errorText_, "Unsafe TAR entry name");

    const std::optional<std::uint64_t> size = readOctal<TarSize>(block);
    if (!size) return reportFailure(errorText_, "Invalid TAR entry size");
    if (*size > rest.size()) return reportFailure(errorText_, "Truncated TAR entry");
    const std::span<const std::uint8_t> data = rest.first(static_cast<std::size_t>(*size));
    rest = rest.subspan(data.size());

    const std::string target = prefix_ + tarTargetName(entryName);
    if (!makeEntry(*TarTypeflag::in(block.data()), target, data)) return false;

    const std::size_t padding = tarPaddingAfter(*size);
    if (padding > rest.size()) return reportFailure(errorText_, "Truncated TAR entry padding");
    rest = rest.subspan(padding);
    return true;
}

}  // namespace

bool tarExtractArchiveBytes(std::span<const std::uint8_t> archive, const fs::path& root,
                            std::string& errorText) {
    Extraction extraction(root, errorText);
    std::span<const std::uint8_t> rest = archive;
    while (rest.size() >= tarBlockSize) {
        const HeaderBlock block = rest.first<tarBlockSize>();
        if (isZeroBlock(block)) return true;

        rest = rest.subspan(tarBlockSize);
        if (!extraction.extractEntry(block, rest)) return false;
    }
    return reportFailure(errorText, "TAR archive has no end marker");
}

}  // namespace vesk::io::archives
