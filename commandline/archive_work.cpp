// SPDX-License-Identifier: MIT
// Calling the module and watching its host calls.
#include "commandline/archive_work.h"

#include <atomic>
#include <filesystem>
#include <string>
#include <system_error>

#include "commandline/interruption.h"
#include "commandline/module_library.h"
#include "commandline/progress_line.h"
#include "commandline/terminal.h"

namespace vesk::commandline {

namespace {

using standin::HostCall;

/// What the module's host calls tell of its progress.
struct Watch {
    /// Made twice for each entry and twice besides, at the ends of the work.
    HostCall countedCall;
    std::uint64_t calls = 0;
    std::atomic<std::uint64_t> entries = 0;
};

void onHostCall(void* context, HostCall call) {
    auto& watch = *static_cast<Watch*>(context);
    if (call == watch.countedCall) {
        ++watch.calls;
        watch.entries = watch.calls < 2 ? 0 : (watch.calls - 2) / 2;
    }
    throwIfInterrupted();
}

/// Observes the calling thread's host calls for as long as it lives.
class Observation {
public:
    explicit Observation(Watch& watch) { standin::observeCalls(onHostCall, &watch); }
    ~Observation() { standin::observeCalls(nullptr, nullptr); }
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;
};

void callModule(NativeMethod method, const Arguments& arguments, Watch& watch) {
    const bool isMake = arguments.verb == Verb::make;
    std::optional<ProgressLine> line;
    if (!arguments.quiet && canRedraw())
        line.emplace(isMake ? "making" : "unpacking", watch.entries);

    const std::string& from = isMake ? arguments.tree : arguments.archive;
    const std::string& to = isMake ? arguments.archive : arguments.tree;
    standin::Mode mode{arguments.overwrite};
    const Observation observation(watch);
    try {
        method(nullptr, from.c_str(), to.c_str(), &mode);
    } catch (...) {
        // The module removes the staging directory after failures of its own only.
        standin::abandonStaging();
        throw;
    }
}

std::optional<std::uintmax_t> sizeOf(const std::filesystem::path& archive) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(archive, error);
    return error ? std::nullopt : std::optional(size);
}

}  // namespace

std::variant<Outcome, standin::PendingError> carryOut(const Arguments& arguments) {
    const auto start = std::chrono::steady_clock::now();
    const ModuleLibrary module = loadModule(arguments.module);
    const ArchiveFormat format =
        arguments.format ? *arguments.format : formatOfContents(arguments.archive);

    Watch watch{arguments.verb == Verb::make ? HostCall::hasPendingError : HostCall::runtimeFsPath};
    // An archive that lies in the destination may be gone once it has been unpacked.
    auto archiveBytes = sizeOf(arguments.archive);
    callModule(module.method(arguments.verb, format), arguments, watch);
    if (auto error = standin::takePendingError()) return *error;

    if (arguments.verb == Verb::make) archiveBytes = sizeOf(arguments.archive);
    return Outcome{watch.entries, archiveBytes, std::chrono::steady_clock::now() - start};
}

}  // namespace vesk::commandline
