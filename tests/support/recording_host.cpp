// SPDX-License-Identifier: MIT
// The nine runtime functions of the test executables.
#include "tests/support/recording_host.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "module/host/host_runtime.h"
#include "tests/support/loaded_library.h"

namespace vesk::testing {

namespace {

thread_local RecordingHost* current = nullptr;

RecordingHost& host() {
    if (current == nullptr) {
        std::fputs("a host function was called on a thread without a RecordingHost\n", stderr);
        std::abort();
    }
    return *current;
}

// Returns the stand-in's own version of `function`, found by the name that this executable exports.
template <typename Function>
Function* standIn(Function* function) {
    static void* const library = loadLibrary(VESK_STANDIN_HOST_PATH);
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(function), &info) == 0 || info.dli_sname == nullptr) {
        std::fputs("the test executable does not export the host functions\n", stderr);
        std::abort();
    }
    return reinterpret_cast<Function*>(findSymbol(library, info.dli_sname));
}

std::string shown(const std::filesystem::path& path) {
    const std::string& text = path.native();
    return !text.empty() && text == host().staging ? "STAGING" : text;
}

std::string answered(bool answer) {
    return std::string(") = ") + (answer ? "1" : "0");
}

std::string hexadecimal(std::uint32_t value) {
    char text[9];
    std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(value));
    return text;
}

bool failWith(const std::optional<std::string>& failure, std::string& error) {
    if (failure && !host().failsWithoutText) error = *failure;
    return failure.has_value();
}

}  // namespace

RecordingHost::RecordingHost() {
    if (current != nullptr) std::abort();
    current = this;
}

RecordingHost::~RecordingHost() {
    current = nullptr;
}

}  // namespace vesk::testing

using vesk::testing::answered;
using vesk::testing::host;
using vesk::testing::shown;
using vesk::testing::standIn;

void Vesk_raise(const char* className, const char* message) {
    host().calls.push_back(std::string("Vesk_raise(") + className + ", " + message + ")");
    ++host().raiseCount;
    if (host().pendingClass) return;
    host().pendingClass = className;
    host().pendingMessage = message;
}

int Vesk_hasPendingError(void) {
    if (host().beforeHasPendingError) host().beforeHasPendingError();
    const bool pending = host().pendingClass.has_value();
    host().calls.push_back("Vesk_hasPendingError(" + answered(pending));
    return pending ? 1 : 0;
}

std::filesystem::path Vesk_runtimeFsPath(const char* text) {
    host().calls.push_back(std::string("Vesk_runtimeFsPath(") + text + ")");
    if (host().beforeRuntimeFsPath) host().beforeRuntimeFsPath(text);
    return host().runtimeFsPath.value_or(text);
}

namespace vesk::runtime::archives {

bool modeIsOverwrite(void* mode) {
    const bool overwrite = mode != nullptr && *static_cast<const bool*>(mode);
    host().calls.push_back(std::string("modeIsOverwrite(") + (mode != nullptr ? "mode" : "null") +
                           answered(overwrite));
    return overwrite;
}

bool prepareExtractionStaging(const std::filesystem::path& destination, bool overwrite,
                              std::filesystem::path& staging, std::string& error) {
    std::string line = "prepareExtractionStaging(" + shown(destination) +
                       ", overwrite=" + (overwrite ? "1" : "0") + ", staging=" + shown(staging) +
                       ", error=" + error;
    const bool prepared =
        !vesk::testing::failWith(host().prepareFailure, error) &&
        standIn(&prepareExtractionStaging)(destination, overwrite, staging, error);
    if (prepared) host().staging = staging.native();
    host().calls.push_back(line + answered(prepared));
    return prepared;
}

bool commitExtractionStaging(const std::filesystem::path& staging,
                             const std::filesystem::path& destination, std::string& error) {
    std::string line = "commitExtractionStaging(" + shown(staging) + ", " + shown(destination) +
                       ", error=" + error;
    if (host().beforeCommit) host().beforeCommit(staging.native());
    const bool committed = !vesk::testing::failWith(host().commitFailure, error) &&
                           standIn(&commitExtractionStaging)(staging, destination, error);
    host().calls.push_back(line + answered(committed));
    return committed;
}

void removeExtractionTree(const std::filesystem::path& staging) {
    host().calls.push_back("removeExtractionTree(" + shown(staging) + ")");
    standIn (&removeExtractionTree)(staging);
}

}  // namespace vesk::runtime::archives

namespace vesk::runtime::zip {

std::uint32_t crc32Update(std::uint32_t crc, const std::uint8_t* bytes, std::uint64_t count) {
    host().calls.push_back("crc32Update(" + vesk::testing::hexadecimal(crc) + ", " +
                           std::to_string(count) + ")");
    return standIn(&crc32Update)(crc, bytes, count);
}

bool inflateRaw(std::istream& in, std::uint64_t compressedSize, std::uint64_t uncompressedSize,
                std::ostream& out, std::uint32_t& crc, std::string& error) {
    std::string line = "inflateRaw(compressed=" + std::to_string(compressedSize) +
                       ", uncompressed=" + std::to_string(uncompressedSize) +
                       ", crc=" + vesk::testing::hexadecimal(crc) + ", error=" + error;
    const bool decoded =
        !vesk::testing::failWith(host().inflateFailure, error) &&
        standIn(&inflateRaw)(in, compressedSize, uncompressedSize, out, crc, error);
    if (decoded && host().inflateCrc) crc = *host().inflateCrc;
    if (decoded && host().inflateRemark) error = *host().inflateRemark;
    host().calls.push_back(line + answered(decoded));
    return decoded;
}

}  // namespace vesk::runtime::zip
