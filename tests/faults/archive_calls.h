// SPDX-License-Identifier: MIT
// The four exported functions as rows of a table, and small inputs that reach every routine.
#pragma once

#include <filesystem>
#include <ostream>
#include <random>
#include <string>

#include "module/native_methods.h"
#include "standinhost/standin_host.h"
#include "tests/support/gzip_bytes.h"
#include "tests/support/tar_bytes.h"
#include "tests/support/tree.h"

namespace vesk::testing {

/// An exported function, and whether it replaces what is at its destination.
struct ArchiveCall {
    const char* name;
    decltype(&vesk_io_archives_TarArchiver_makeArchive) function;
    bool makes;
    bool gzip;
    bool replaces;

    void operator()(const std::filesystem::path& from, const std::filesystem::path& to) const {
        standin::Mode mode{replaces};
        function(nullptr, from.c_str(), to.c_str(), &mode);
    }
};

inline std::ostream& operator<<(std::ostream& out, const ArchiveCall& call) {
    return out << call.name;
}

// clang-format off
inline constexpr ArchiveCall archiveCalls[] = {
    {"TarMakeNew", vesk_io_archives_TarArchiver_makeArchive, true, false, false},
    {"TarMakeReplacing", vesk_io_archives_TarArchiver_makeArchive, true, false, true},
    {"TarUnpackNew", vesk_io_archives_TarArchiver_unpackArchive, false, false, false},
    {"TarUnpackReplacing", vesk_io_archives_TarArchiver_unpackArchive, false, false, true},
    {"TgzMakeNew", vesk_io_archives_TgzArchiver_makeArchive, true, true, false},
    {"TgzMakeReplacing", vesk_io_archives_TgzArchiver_makeArchive, true, true, true},
    {"TgzUnpackNew", vesk_io_archives_TgzArchiver_unpackArchive, false, true, false},
    {"TgzUnpackReplacing", vesk_io_archives_TgzArchiver_unpackArchive, false, true, true},
};
// clang-format on

/// Returns a name of 142 bytes, which a header block stores in two parts of 121 and 20 bytes.
inline std::string splitName() {
    return std::string(60, 'd') + '/' + std::string(60, 'e') + '/' + std::string(20, 'f');
}

/// Writes a source tree: files whose data fill their blocks and files whose data do not, an empty
/// file, a name that is split, a symbolic link to a file, and an empty directory.
inline void writeSource(const std::filesystem::path& root) {
    writeTree(root, {{"a.txt", "some data"},
                     {"empty", ""},
                     {"sub/block", std::string(512, 'b')},
                     {splitName(), std::string(5000, 's')}});
    std::filesystem::create_directory(root / "hollow");
    std::filesystem::create_symlink("a.txt", root / "link");
}

/// Returns a TAR stream with a directory, a split name and data of several blocks.
inline std::string streamToUnpack() {
    std::string split =
        patched(tarHeader(splitName().substr(122), 4), 345, splitName().substr(0, 121));
    return tarEntry("directory/", "", '5') + tarEntry("directory/file", "content") +
           sealed(std::move(split)) + "data" + tarPadding(4) +
           tarEntry("large", std::string(3000, 'z')) + tarEnd();
}

/// Returns the tree that streamToUnpack gives on disk.
inline Tree unpackedTree() {
    return {
        {"directory/file", "content"}, {splitName(), "data"}, {"large", std::string(3000, 'z')}};
}

/// Returns `count` incompressible bytes, the same each time.
inline std::string noise(std::size_t count) {
    std::mt19937 generator(1);
    std::string bytes(count, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(generator());
    return bytes;
}

/// Returns `stream` in a gzip member with every optional header field.
inline std::string memberOf(const std::string& stream) {
    const std::string fields =
        std::string("\3\0abc", 5) + std::string("name\0", 5) + std::string("comment\0", 8);
    return gzipMember(stream, withHeaderChecksum(gzipHeader(0x1F) + fields));
}

}  // namespace vesk::testing
