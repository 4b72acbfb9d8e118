// SPDX-License-Identifier: MIT
// A runtime for tests: supplies the nine functions, logs every call, fails on demand.
//
// The test executable exports the nine functions. So the loaded module and the inner routines that
// are linked in both call them here. Unless a test makes a function fail, it calls that of the
// stand-in host.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace vesk::testing {

/// Lines of a log of host calls; see RecordingHost::calls.
using Calls = std::vector<std::string>;

inline Calls operator+(Calls calls, const Calls& more) {
    calls.insert(calls.end(), more.begin(), more.end());
    return calls;
}

/// The call that raises `message`.
inline std::string raised(const std::string& message) {
    return "Vesk_raise(IOException, " + message + ")";
}

/// The call that converts `path`.
inline std::string converted(const std::string& path) {
    return "Vesk_runtimeFsPath(" + path + ")";
}

/// Receives the calls of its thread from construction to destruction. A thread has one at a time.
class RecordingHost {
public:
    RecordingHost();
    ~RecordingHost();
    RecordingHost(const RecordingHost&) = delete;
    RecordingHost& operator=(const RecordingHost&) = delete;

    /// One line for each call, in order, with the arguments and, after " = ", the answer:
    ///     Vesk_raise(IOException, Archive path is required)
    ///     Vesk_hasPendingError() = 0
    ///     Vesk_runtimeFsPath(out/a.tar)
    ///     modeIsOverwrite(mode) = 1                 "null" in place of "mode" for a null handle
    ///     prepareExtractionStaging(out, overwrite=0, staging=, error=) = 1
    ///     commitExtractionStaging(STAGING, out, error=) = 1
    ///     removeExtractionTree(STAGING)
    ///     crc32Update(ffffffff, 1536)
    ///     inflateRaw(compressed=12, uncompressed=1024, crc=0, error=) = 1
    /// STAGING stands for the path that prepareExtractionStaging returned last.
    Calls calls;

    /// The exception that was raised first and is pending; empty when none is.
    std::optional<std::string> pendingClass;
    std::optional<std::string> pendingMessage;
    /// The number of calls of Vesk_raise.
    int raiseCount = 0;

    /// When set, the function stores this text and fails without doing anything.
    std::optional<std::string> prepareFailure;
    std::optional<std::string> commitFailure;
    std::optional<std::string> inflateFailure;
    /// Whether the failures above leave the text unchanged instead.
    bool failsWithoutText = false;
    /// When set, inflateRaw stores this text although it succeeds.
    std::optional<std::string> inflateRemark;
    /// When set, inflateRaw returns this CRC instead of the right one.
    std::optional<std::uint32_t> inflateCrc;
    /// When set, Vesk_runtimeFsPath returns this path for every text.
    std::optional<std::filesystem::path> runtimeFsPath;
    /// Called, when set, before the named function answers; may throw.
    std::function<void(const char* text)> beforeRuntimeFsPath;
    std::function<void()> beforeHasPendingError;
    std::function<void(const std::string& staging)> beforeCommit;

    /// The staging directory that prepareExtractionStaging returned last.
    std::string staging;
};

}  // namespace vesk::testing
