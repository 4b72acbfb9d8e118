// SPDX-License-Identifier: MIT
// Reading at the offsets of POSIX.1-1988 ustar; zlib decodes members.
#include "tests/sandbox/archive_reader.h"

#include <zlib.h>

#include <string_view>

#include "tests/support/tar_bytes.h"

namespace vesk::testing {

namespace {

std::string textField(std::string_view block, std::size_t offset, std::size_t width) {
    const std::string_view field = block.substr(offset, width);
    return std::string(field.substr(0, field.find('\0')));
}

std::size_t octalField(std::string_view block, std::size_t offset, std::size_t width) {
    return std::stoul("0" + textField(block, offset, width), nullptr, 8);
}

bool isSoundHeader(std::string_view block) {
    return textField(block, 257, 6) == "ustar" && block[156] == '0' &&
           octalField(block, 148, 8) == static_cast<std::size_t>(tarSum<unsigned char>(block));
}

std::string nameOf(std::string_view block) {
    const std::string prefix = textField(block, 345, 155);
    return (prefix.empty() ? "" : prefix + "/") + textField(block, 0, 100);
}

}  // namespace

std::optional<ArchivedFiles> readTar(const std::string& bytes) {
    ArchivedFiles files;
    std::string_view rest = bytes;
    while (rest != std::string(1024, '\0')) {
        if (rest.size() < 512 || !isSoundHeader(rest.substr(0, 512))) return std::nullopt;
        const std::string_view header = rest.substr(0, 512);
        const std::size_t size = octalField(header, 124, 12);
        const std::size_t padded = (size + 511) / 512 * 512;
        if (rest.size() - 512 < padded) return std::nullopt;
        const bool isNew = files.emplace(nameOf(header), rest.substr(512, size)).second;
        if (!isNew) return std::nullopt;
        rest.remove_prefix(512 + padded);
    }
    return files;
}

std::optional<ArchivedFiles> readTgz(const std::string& bytes) {
    z_stream stream{};
    if (inflateInit2(&stream, 15 + 16) != Z_OK) return std::nullopt;
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    std::string decoded;
    int result = Z_OK;
    while (result == Z_OK) {
        std::string piece(65536, '\0');
        stream.next_out = reinterpret_cast<Bytef*>(piece.data());
        stream.avail_out = static_cast<uInt>(piece.size());
        result = inflate(&stream, Z_NO_FLUSH);
        decoded.append(piece, 0, piece.size() - stream.avail_out);
    }
    const bool isWhole = result == Z_STREAM_END && stream.avail_in == 0;
    inflateEnd(&stream);
    return isWhole ? readTar(decoded) : std::nullopt;
}

}  // namespace vesk::testing
