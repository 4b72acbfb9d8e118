// SPDX-License-Identifier: MIT
// Calling the module, and moving what it made into place.
#include "commandline/archive_work.h"

#include <sys/stat.h>

#include <string>
#include <utility>

#include "commandline/archive_target.h"
#include "commandline/made_parents.h"
#include "commandline/making_file.h"
#include "commandline/module_library.h"
#include "commandline/progress_line.h"
#include "commandline/terminal.h"
#include "commandline/work_watch.h"

namespace vesk::commandline {

namespace {

using Failure = std::optional<standin::PendingError>;

/// A method of the module and its arguments.
struct Call {
    NativeMethod method;
    std::string from;
    std::string to;
    standin::Mode mode;
};

Failure callModule(Call call) {
    try {
        call.method(nullptr, call.from.c_str(), call.to.c_str(), &call.mode);
    } catch (...) {
        // The module removes the staging directory after a failure, but not after an exception.
        standin::abandonStaging();
        throw;
    }
    return standin::takePendingError();
}

Failure makeArchive(NativeMethod method, const Arguments& arguments, MakingWatch& watch) {
    const ArchiveTarget target =
        findArchiveTarget(arguments.archive, arguments.tree, arguments.overwrite);
    const Call call{method, arguments.tree, target.modulePath, {target.moduleOverwrites, false}};
    MadeParents parents(arguments.archive);
    if (!target.file) {
        auto error = callModule(call);
        if (!error) parents.keep();
        return error;
    }

    MakingFile file(target.modulePath, *target.file, arguments.overwrite, arguments.sync);
    if (auto error = callModule(call)) return error;
    watch.noteMoving();
    const char* message = file.publish();
    if (message == nullptr && arguments.sync && !parents.sync())
        message = "Cannot finalize archive";
    if (message != nullptr) return standin::PendingError{"IOException", message};
    parents.keep();
    return std::nullopt;
}

/// Allocates no memory: it must not fail once the archive exists.
std::optional<std::uintmax_t> sizeOf(const std::string& archive) {
    struct stat status {};
    if (stat(archive.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return static_cast<std::uintmax_t>(status.st_size);
}

/// Shows the progress on a terminal that can be redrawn.
class ShownProgress {
public:
    ShownProgress(const Arguments& arguments, WorkWatch& watch) {
        if (!arguments.quiet && canRedraw()) line_.emplace([&watch] { return watch.moment(); });
    }

private:
    std::optional<ProgressLine> line_;
};

using Clock = std::chrono::steady_clock;
using Result = std::variant<Outcome, standin::PendingError>;

Result make(NativeMethod method, const Arguments& arguments) {
    const auto start = Clock::now();
    MakingWatch watch(arguments.tree, !arguments.quiet);
    {
        const ShownProgress line(arguments, watch);
        if (const Failure failure = makeArchive(method, arguments, watch)) return *failure;
    }
    return Outcome{Verb::make, watch.entries(), sizeOf(arguments.archive), Clock::now() - start,
                   watch.findings()};
}

Result unpack(NativeMethod method, ArchiveFormat format, const Arguments& arguments) {
    const auto start = Clock::now();
    // Taken before the work: after it, the path may name another file than the unpacked archive.
    const auto archiveBytes = sizeOf(arguments.archive);
    UnpackingWatch watch(arguments.archive, format == ArchiveFormat::tgz, !arguments.quiet);
    {
        const ShownProgress line(arguments, watch);
        if (const Failure failure = callModule(
                {method, arguments.archive, arguments.tree, {arguments.overwrite, arguments.sync}}))
            return *failure;
    }
    SourceFindings findings;
    findings.executables = watch.executables();
    return Outcome{Verb::unpack, watch.entries(), archiveBytes, Clock::now() - start,
                   std::move(findings)};
}

}  // namespace

Result carryOut(const Arguments& arguments) {
    const ModuleLibrary module = loadModule(arguments.module);
    const ArchiveFormat format =
        arguments.format ? *arguments.format : formatOfContents(arguments.archive);
    const NativeMethod method = module.method(arguments.verb, format);
    return arguments.verb == Verb::make ? make(method, arguments)
                                        : unpack(method, format, arguments);
}

}  // namespace vesk::commandline
