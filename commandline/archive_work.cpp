// SPDX-License-Identifier: MIT
// Calling the module and watching its host calls.
#include "commandline/archive_work.h"

#include <sys/stat.h>

#include <atomic>
#include <string>

#include "commandline/archive_target.h"
#include "commandline/interruption.h"
#include "commandline/made_parents.h"
#include "commandline/making_file.h"
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
    /// Created at the first such call, when the module has collected its entries: it becomes none
    /// of them.
    MakingFile* file = nullptr;
};

void onHostCall(void* context, HostCall call) {
    auto& watch = *static_cast<Watch*>(context);
    if (call == watch.countedCall) {
        ++watch.calls;
        watch.entries = watch.calls < 2 ? 0 : (watch.calls - 2) / 2;
        if (watch.calls == 1 && watch.file != nullptr) watch.file->create();
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

/// Names the module's method and what it is called with.
struct Call {
    NativeMethod method;
    std::string from;
    std::string to;
    standin::Mode mode;
};

using Failure = std::optional<standin::PendingError>;

Failure callModule(Call call, Watch& watch, bool showsProgress) {
    std::optional<ProgressLine> line;
    const bool isMake = watch.countedCall == HostCall::hasPendingError;
    if (showsProgress && canRedraw()) line.emplace(isMake ? "making" : "unpacking", watch.entries);

    const Observation observation(watch);
    try {
        call.method(nullptr, call.from.c_str(), call.to.c_str(), &call.mode);
    } catch (...) {
        // The module removes the staging directory after failures of its own only.
        standin::abandonStaging();
        throw;
    }
    return standin::takePendingError();
}

Failure makeArchive(NativeMethod method, const Arguments& arguments, Watch& watch) {
    const ArchiveTarget target =
        findArchiveTarget(arguments.archive, arguments.tree, arguments.overwrite);
    const Call call{method, arguments.tree, target.modulePath, {target.moduleOverwrites, false}};
    MadeParents parents(arguments.archive);
    if (!target.file) {
        auto error = callModule(call, watch, !arguments.quiet);
        if (!error) parents.keep();
        return error;
    }

    MakingFile file(target.modulePath, *target.file, arguments.overwrite);
    watch.file = &file;
    const char* message = nullptr;
    try {
        if (auto error = callModule(call, watch, !arguments.quiet)) return error;
        message = file.publish(arguments.sync);
    } catch (const NameTaken&) {
        message = "Cannot create archive";
    }
    if (message != nullptr) return standin::PendingError{"IOException", message};
    parents.keep();
    return std::nullopt;
}

Failure unpackArchive(NativeMethod method, const Arguments& arguments, Watch& watch) {
    return callModule(
        {method, arguments.archive, arguments.tree, {arguments.overwrite, arguments.sync}}, watch,
        !arguments.quiet);
}

/// Takes no memory: it must not fail when the archive is there.
std::optional<std::uintmax_t> sizeOf(const std::string& archive) {
    struct stat status {};
    if (stat(archive.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return static_cast<std::uintmax_t>(status.st_size);
}

}  // namespace

std::variant<Outcome, standin::PendingError> carryOut(const Arguments& arguments) {
    const auto start = std::chrono::steady_clock::now();
    const ModuleLibrary module = loadModule(arguments.module);
    const ArchiveFormat format =
        arguments.format ? *arguments.format : formatOfContents(arguments.archive);

    Watch watch{arguments.verb == Verb::make ? HostCall::hasPendingError : HostCall::runtimeFsPath};
    // The archive that was unpacked may be another file by the time it has been.
    auto archiveBytes = sizeOf(arguments.archive);
    const bool isMake = arguments.verb == Verb::make;
    const NativeMethod method = module.method(arguments.verb, format);
    const Failure failure =
        isMake ? makeArchive(method, arguments, watch) : unpackArchive(method, arguments, watch);
    if (failure) return *failure;

    if (isMake) archiveBytes = sizeOf(arguments.archive);
    return Outcome{watch.entries, archiveBytes, std::chrono::steady_clock::now() - start};
}

}  // namespace vesk::commandline
