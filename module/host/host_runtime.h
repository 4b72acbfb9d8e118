// SPDX-License-Identifier: MIT
// The nine functions that the module requires of the runtime.
//
// The module declares them here and leaves them undefined; they are resolved when it is loaded.
// Paths, strings and streams are passed by reference, so the module and the runtime must be built
// against the same C++ standard library. Every call is made on the thread that called the exported
// function. The runtime keeps no pointer or reference after the call.
#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>

extern "C" {

/// Records a pending exception of the class `className` with the text `message`.
///
/// Both are NUL-terminated strings that the module owns and may free right after the call, so the
/// runtime copies them. Vesk_raise returns normally; the module then releases what it holds and
/// returns. The class is always "IOException", and the module raises at most once per exported
/// call.
void Vesk_raise(const char* className, const char* message);

/// Returns nonzero while an exception is pending.
///
/// The module asks after each step that reports failure only by raising: after it has built the TAR
/// stream and after it has read an archive. While it builds a stream, it also asks after it has
/// collected the entries, after each file and after each header block. On nonzero it returns
/// without raising anything more. It never asks on entry and never clears a pending exception.
int Vesk_hasPendingError(void);

}  // extern "C"

/// Turns a host path string into a filesystem path, returned by value.
///
/// `text` is NUL-terminated, never null and never empty. It is an archive, source or destination
/// path, or the name of a TAR entry. The name of an entry that is extracted is converted twice: to
/// judge it, and to form the path of its target. A relative string must therefore yield a relative
/// path with the same components. The module does not check the result and expects no failure.
std::filesystem::path Vesk_runtimeFsPath(const char* text);

namespace vesk::runtime::archives {

/// Tells whether `mode`, the handle that the exported function received as its last argument,
/// allows replacing an existing archive (making) or an existing destination (unpacking).
///
/// The module passes the handle through unread. It asks once per call: when making, after the
/// archive path has been converted; when unpacking, after the archive has been read and decoded. It
/// does not call Vesk_hasPendingError right after this function.
bool modeIsOverwrite(void* mode);

/// Prepares a fresh, empty staging directory for an extraction into `destination`.
///
/// This function alone decides whether an existing destination is refused or may be replaced
/// (`overwrite`); the module never examines the destination.
///
/// On true the directory exists, and `staging`, empty on entry, names it. The path and its
/// lexically normal form must name the same directory (no `..` after a symbolic link), since the
/// extractor forms its targets lexically. On false `error` has been replaced by the message; the
/// module then removes nothing and raises that text unchanged. On entry `error` is empty for a TAR
/// archive, and holds what inflateRaw left in it for a gzip member.
bool prepareExtractionStaging(const std::filesystem::path& destination, bool overwrite,
                              std::filesystem::path& staging, std::string& error);

/// Moves the extracted tree from `staging` to `destination`; called only when the whole archive
/// has been extracted.
///
/// On true the tree is at the destination and nothing is left to clean up. On false `error` has
/// been replaced by the message, and the module passes `staging` to removeExtractionTree.
bool commitExtractionStaging(const std::filesystem::path& staging,
                             const std::filesystem::path& destination, std::string& error);

/// Deletes the tree at `staging` after a failed extraction or commit. A failure to delete it is not
/// reported, since the earlier failure is.
void removeExtractionTree(const std::filesystem::path& staging);

}  // namespace vesk::runtime::archives

namespace vesk::runtime::zip {

/// Continues a CRC-32 (RFC 1952, section 8) over `count` bytes and returns the new register.
///
/// The register is inverted neither on entry nor on exit: the module starts from 0xFFFFFFFF and
/// inverts the result. With a count of 0 the pointer may be null, and the register is returned
/// unchanged.
std::uint32_t crc32Update(std::uint32_t crc, const std::uint8_t* bytes, std::uint64_t count);

/// Decodes raw DEFLATE data (RFC 1951) from `in` to `out`.
///
/// `in` is a binary stream positioned at the first of `compressedSize` bytes, at least 1.
/// `uncompressedSize` is the gzip trailer's ISIZE, the length modulo 2^32. The module does not
/// compare lengths, so a runtime that wants the length checked does it here. `crc` is 0 on entry.
/// On true it holds the finished CRC-32 of the decoded bytes, as a gzip trailer stores it. On false
/// `error`, empty on entry, holds the message, which the module raises unchanged.
bool inflateRaw(std::istream& in, std::uint64_t compressedSize, std::uint64_t uncompressedSize,
                std::ostream& out, std::uint32_t& crc, std::string& error);

}  // namespace vesk::runtime::zip
