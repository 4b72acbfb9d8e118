// SPDX-License-Identifier: MIT
// Fuzz target: unpacks a file of any bytes, and has the failure explained. The message of the
// module must be explained by what is in the file, and no other message may be.
#include <algorithm>
#include <array>
#include <cstdint>

#include "explanation/explanation.h"
#include "fuzz/require.h"
#include "fuzz/unpack_box.h"
#include "module/native_methods.h"

namespace fuzzing = vesk::fuzzing;
using vesk::explanation::explain;
using vesk::explanation::FailedCall;

namespace {

// The messages that the module and the stand-in can raise about a file: one of each kind.
constexpr auto messages = std::to_array<const char*>({
    "Archive file does not exist",
    "Invalid gzip stream",
    "Invalid gzip checksum",
    "Truncated DEFLATE data",
    "DEFLATE output is longer than its declared size",
    "Unexpected data after DEFLATE stream",
    "TAR archive has no end marker",
    "Invalid TAR header checksum",
    "Unsafe TAR entry name",
    "Truncated TAR entry",
    "Unsupported TAR entry type",
    "Cannot create TAR directory",
    "Cannot write TAR entry",
    "Cannot finalize TAR entry",
});

void requireFewLines(const std::vector<std::string>& lines) {
    fuzzing::require(lines.size() <= 3, "there are at most three lines of help");
    fuzzing::require(std::find(lines.begin(), lines.end(), "") == lines.end(), "none is empty");
}

void judge(FailedCall call, const std::string& message) {
    call.message = message;
    const std::vector<std::string> lines = explain(call);
    requireFewLines(lines);
    fuzzing::require(!lines.empty(), "a message about a file is explained", message);
}

// Checks that the other messages are not explained: the file does not contain their causes.
void judgeOthers(FailedCall call, const std::string& message) {
    for (const char* const other : messages) {
        if (message == other) continue;
        call.message = other;
        const std::vector<std::string> lines = explain(call);
        fuzzing::require(lines.empty(), "only what happened is explained", message + " / " + other);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The content of a member can be up to 1032 times as long.
    if (size > 16384) return 0;
    static fuzzing::UnpackBox box;
    const std::string_view file(reinterpret_cast<const char*>(data), size);
    fuzzing::writeArchive(box.archive(), file);
    for (const bool isGzip : {false, true}) {
        const auto unpack = isGzip ? vesk_io_archives_TgzArchiver_unpackArchive
                                   : vesk_io_archives_TarArchiver_unpackArchive;
        unpack(nullptr, box.archive().c_str(), box.destination().c_str(), nullptr);
        const std::string message = fuzzing::takeMessage().value_or("");
        std::filesystem::remove_all(box.destination());
        const FailedCall call{false, isGzip, box.archive(), box.destination(), ""};
        if (!message.empty()) judge(call, message);
        // The file may contain causes of other messages after an entry that could not be made.
        if (!message.starts_with("Cannot ")) judgeOthers(call, message);
    }
    return 0;
}
