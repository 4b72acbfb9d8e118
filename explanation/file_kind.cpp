// SPDX-License-Identifier: MIT
// The kinds of files and the bytes that they begin with.
#include "explanation/file_kind.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace vesk::explanation {

namespace {

using namespace std::string_view_literals;

struct Magic {
    std::string_view bytes;
    const char* name;
    bool isReadable;
};

constexpr auto magics = std::to_array<Magic>({
    {"\x1F\x8B"sv, "a gzip file", true},
    {"PK\3\4"sv, "a zip archive", true},
    {"PK\5\6"sv, "an empty zip archive", false},
    {"\xFD"
     "7zXZ\0"sv,
     "an xz file", true},
    {"BZh"sv, "a bzip2 file", true},
    {"\x28\xB5\x2F\xFD"sv, "a zstd file", true},
    {"7z\xBC\xAF\x27\x1C"sv, "a 7z archive", true},
    {"\x1F\x9D"sv, "a file packed by compress", false},
    {"\x04\x22\x4D\x18"sv, "an lz4 file", false},
    {"LZIP"sv, "an lzip file", false},
    {"Rar!\x1A\x07"sv, "a rar archive", false},
    {"!<arch>\ndebian-binary"sv, "a Debian package", false},
    {"!<arch>\n"sv, "an ar archive", false},
    {"\xED\xAB\xEE\xDB"sv, "an rpm package", false},
    {"070701"sv, "a cpio archive", false},
    {"070707"sv, "a cpio archive", false},
    {"\x7F"
     "ELF"sv,
     "a program, no archive", false},
    {"%PDF-"sv, "a PDF document, no archive", false},
    {"<!DOCTYPE html"sv, "a web page, no archive", false},
    {"<!doctype html"sv, "a web page, no archive", false},
    {"<html"sv, "a web page, no archive", false},
});

bool isTextByte(char byte) {
    const auto code = static_cast<unsigned char>(byte);
    return code >= 0x20 ? code < 0x7F : byte == '\n' || byte == '\r' || byte == '\t';
}

}  // namespace

FileKind kindOfBytes(std::span<const std::uint8_t> beginning) {
    const std::string text(beginning.begin(), beginning.end());
    const auto* const magic = std::find_if(magics.begin(), magics.end(), [&](const Magic& known) {
        return text.starts_with(known.bytes);
    });
    if (magic != magics.end()) return {magic->name, magic->isReadable};
    if (!text.empty() && std::all_of(text.begin(), text.end(), isTextByte))
        return {"plain text, no archive"};
    return {};
}

}  // namespace vesk::explanation
