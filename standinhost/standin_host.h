// SPDX-License-Identifier: MIT
// A stand-in for the Vesk runtime: implements the nine functions of module/host/host_runtime.h for
// builds, tests and tools without the runtime. This header is the API for host programs.
//
// The pending exception, the observers, the last mode's `sync`, the open staging directory and what
// could not be deleted are kept per thread; nothing else outlives a call. C++ exceptions leave the
// nine functions only when memory runs out, when an observer throws, or when a stream that is set
// to throw does.
//
// Messages of its own, fixed texts without system text:
//   staging   "Cannot inspect destination"
//             "Cannot create destination parent directory"
//             "Destination already exists"
//             "Destination cannot be replaced"
//             "Cannot create staging directory"
//   commit    "Destination already exists"
//             "Destination cannot be replaced"
//             "Destination cannot be moved by its file system"
//             "Cannot move extracted files to destination"
//             "Cannot flush extracted files"
//   inflate   "Invalid DEFLATE data"
//             "Truncated DEFLATE data"
//             "DEFLATE output is shorter than its declared size"
//             "DEFLATE output is longer than its declared size"
//             "Unexpected data after DEFLATE stream"
//             "Cannot store DEFLATE output"
//
// What an extraction keeps beside its destination NAME, and may leave there if it is killed:
//   .NAME.vesk-unpacking-new-XXXXXX         files being extracted; nothing is to be replaced
//   .NAME.vesk-unpacking-replacing-XXXXXX   files being extracted, or the old tree being deleted
//   .NAME.vesk-replaced-XXXXXX              the old tree, where two trees cannot be exchanged
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

namespace vesk::standin {

/// A pending exception: the class name and the message that Vesk_raise was given.
struct PendingError {
    std::string className;
    std::string message;
};

/// Returns the calling thread's pending exception and clears it; returns nothing when none is
/// pending. A later raise does not replace the pending exception.
std::optional<PendingError> takePendingError();

/// The mode argument of the exported functions: its address is the handle. It must outlive the
/// call. A null handle means no overwriting and no flushing.
struct Mode {
    bool overwrite = false;
    /// If true, an extraction that is reported as successful survives a power cut: the file system
    /// is flushed before the tree is moved into place, and the directory that holds it afterwards.
    bool sync = false;
};

/// The module's calls that show the progress of an exported function.
enum class HostCall { hasPendingError, runtimeFsPath, commitExtractionStaging };

/// Called on the calling thread right before the stand-in answers such a call. It may throw: the
/// exception leaves the exported function, which releases everything that it holds except the
/// staging directory (see abandonStaging).
using CallObserver = void (*)(void* context, HostCall call);

/// Sets the calling thread's observer; a null observer removes it. `context` is passed through
/// unread and must be valid as long as the observer is set.
void observeCalls(CallObserver observer, void* context);

/// A piece of the output of inflateRaw.
struct DecodedPiece {
    std::span<const std::uint8_t> bytes;  ///< what was just decoded; valid only during the call
    std::uint64_t inputUsed;              ///< bytes of compressed data that have been read so far
};

/// Called on the calling thread for each piece that has been written to the output stream. It may
/// throw, as an observer of calls may.
using DecodingObserver = void (*)(void* context, const DecodedPiece& piece);

/// Like observeCalls, for decoded pieces.
void observeDecoding(DecodingObserver observer, void* context);

/// Removes the staging directory that the calling thread prepared last, if it has neither been
/// committed nor removed, and the parent directories that were made for it, if they are empty.
///
/// Called after a C++ exception has left an exported function: in that case the module removes
/// nothing. The thread's next extraction also does this first.
void abandonStaging();

/// Something that an extraction could not delete or put back.
struct Leftover {
    /// Its path: absolute and without links and dots, if that is known.
    std::filesystem::path path;
    /// True if it is the only copy of the tree that was to be replaced; it should be moved back to
    /// the destination. Otherwise it is useless and can be removed.
    bool isOldTree = false;
    /// True if something is mounted in it, which must be unmounted before it is removed.
    bool holdsMount = false;
};

/// Returns what the calling thread's last extraction left, whether it succeeded or not, and forgets
/// it; returns nothing when nothing was left.
std::optional<Leftover> takeLeftover();

}  // namespace vesk::standin
