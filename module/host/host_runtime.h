// SPDX-License-Identifier: MIT
// What the module asks of the Vesk runtime: nine functions that whoever loads the module supplies.
//
// The module declares them here and leaves them undefined; they are resolved when it is loaded.
// Paths, strings and streams cross by reference, so the module and the runtime must be built
// against one and the same C++ standard library. Every call is made on the thread that called the
// exported function, and the runtime keeps no pointer or reference beyond the call.
#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>

extern "C" {

/// Records a pending host exception of the class `className` with the text `message`.
///
/// Both are NUL-terminated strings that the module owns and may free right after the call: the
/// runtime copies them. It returns normally; the module then releases what it holds and returns.
/// The module passes no class but "IOException" and raises at most once per exported call.
void Vesk_raise(const char* className, const char* message);

/// Returns nonzero while a host exception is pending.
///
/// Asked after each step that reports failure only by raising: after the TAR stream has been
/// built, after an archive has been read, and while building after the entries have been
/// collected, after each file and after each header block. On nonzero the module returns without
/// raising anything more. It never asks on entry and never clears a pending exception.
int Vesk_hasPendingError(void);

}  // extern "C"

/// Turns a host path string into a filesystem path, returned by value.
///
/// `text` is NUL-terminated, never null and never empty. A relative string must yield a relative
/// path with the same components: TAR entry names are converted too (twice each, once to judge the
/// name and once to make the target), besides the archive, source and destination paths. The
/// result is not checked and no failure is expected.
std::filesystem::path Vesk_runtimeFsPath(const char* text);

namespace vesk::runtime::archives {

/// Tells whether `mode`, the handle that the exported function received as its last argument,
/// allows an existing archive (making) or an existing destination (unpacking) to be replaced.
///
/// The module hands the handle on without looking at it. Asked once per call: when making, after
/// the archive path has been converted; when unpacking, after the archive has been read and
/// decoded. No pending exception is looked for afterwards.
bool modeIsOverwrite(void* mode);

/// Prepares a fresh, empty staging directory for an extraction into `destination`.
///
/// Whether an existing destination is refused or may be replaced (`overwrite`) is decided here; the
/// module never examines the destination. True: the directory exists and `staging`, empty on entry,
/// names it. It must mean the same to the system and in its lexically normal form (no `..` behind a
/// symbolic link), since the extractor forms its targets lexically. False: `error` has been
/// replaced by the message; the module then removes nothing and raises that text as it stands. On
/// entry `error` holds what inflateRaw left in it, else nothing.
bool prepareExtractionStaging(const std::filesystem::path& destination, bool overwrite,
                              std::filesystem::path& staging, std::string& error);

/// Moves the extracted tree from `staging` to `destination`; called only when the whole archive
/// has been extracted.
///
/// True: the tree is at the destination and nothing is left to clean up. False: `error` has been
/// replaced by the message, and the module hands `staging` to removeExtractionTree.
bool commitExtractionStaging(const std::filesystem::path& staging,
                             const std::filesystem::path& destination, std::string& error);

/// Deletes the tree at `staging` after a failed extraction or commit. What becomes of it is not
/// reported: the earlier failure is.
void removeExtractionTree(const std::filesystem::path& staging);

}  // namespace vesk::runtime::archives

namespace vesk::runtime::zip {

/// Continues a CRC-32 (RFC 1952, section 8) over `count` bytes and returns the new register.
///
/// The register is inverted neither on entry nor on exit: the module starts from 0xFFFFFFFF and
/// inverts the result. With a count of 0 the pointer may be null and the register comes back
/// unchanged.
std::uint32_t crc32Update(std::uint32_t crc, const std::uint8_t* bytes, std::uint64_t count);

/// Decodes raw DEFLATE data (RFC 1951) from `in` to `out`.
///
/// `in` is a binary stream positioned at the first of `compressedSize` bytes, at least 1.
/// `uncompressedSize` is the gzip trailer's ISIZE, the length modulo 2^32; the module compares no
/// length itself, so a runtime that wants it checked checks it here. `crc` is 0 on entry; on
/// success it holds the finished CRC-32 of the decoded bytes, as a gzip trailer stores it.
/// False: `error`, empty on entry, holds the message, which the module raises as it stands.
bool inflateRaw(std::istream& in, std::uint64_t compressedSize, std::uint64_t uncompressedSize,
                std::ostream& out, std::uint32_t& crc, std::string& error);

}  // namespace vesk::runtime::zip
