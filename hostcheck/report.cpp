// SPDX-License-Identifier: MIT
// Runs the trials and prints what comes out.
#include "hostcheck/report.h"

#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "hostcheck/child_process.h"
#include "hostcheck/requirement.h"
#include "hostcheck/scratch_directory.h"

namespace vesk::hostcheck {

namespace {

namespace fs = std::filesystem;

constexpr unsigned loadingSeconds = 60;

/// Counts the lines that it prints.
struct Report {
    int requirements = 0;
    int failures = 0;

    void print(Weight weight, const char* function, const char* promise,
               const std::optional<Deviation>& deviation);
};

void Report::print(Weight weight, const char* function, const char* promise,
                   const std::optional<Deviation>& deviation) {
    const bool isAdvice = weight == Weight::advice;
    if (!isAdvice) ++requirements;
    if (!isAdvice && deviation) ++failures;
    std::printf("%s  %s: %s", deviation ? (isAdvice ? "note" : "FAIL") : "pass", function, promise);
    if (deviation) {
        std::printf("; %s %s; came %s", isAdvice ? "advised" : "expected",
                    deviation->expected.c_str(), deviation->came.c_str());
    }
    std::puts("");
}

/// Loading can crash, too, and is nothing that this process should be left with.
void requireThatItLoads(const fs::path& library) {
    const auto deviation = deviationInChild(
        [&] {
            try {
                loadLibrary(library);
            } catch (const std::runtime_error& error) {
                throw Deviation{"", error.what()};
            }
        },
        loadingSeconds);
    if (deviation) throw std::runtime_error("cannot load the library: " + deviation->came);
}

void checkPresence(const fs::path& library, Report& report) {
    for (const HostFunction& function : hostFunctions()) {
        const auto deviation = deviationInChild(
            [&] {
                const bool isThere = findSymbol(loadLibrary(library), function.symbol) != nullptr;
                expect(isThere, std::string("the symbol ") + function.symbol, "none");
            },
            loadingSeconds);
        report.print(Weight::requirement, function.name, "is exported", deviation);
    }
}

/// Runs in the trial's own process.
void attempt(const fs::path& library, const Requirement& requirement,
             const std::vector<fs::path>& places) {
    fs::current_path(places.front());
    requirement.check({findFunctions(loadLibrary(library)), places});
}

void checkRequirement(const fs::path& library, const Requirement& requirement, Report& report) {
    std::vector<std::unique_ptr<ScratchDirectory>> scratch;
    std::vector<fs::path> places;
    for (const fs::path& parent : scratchParents()) {
        scratch.push_back(std::make_unique<ScratchDirectory>(parent));
        places.push_back(scratch.back()->path());
    }
    const auto deviation =
        deviationInChild([&] { attempt(library, requirement, places); }, requirement.seconds);
    report.print(requirement.weight, requirement.function, requirement.promise, deviation);
}

void checkRequirements(const fs::path& library, Report& report) {
    for (const auto table : {pendingRequirements(), pathRequirements(), stagingRequirements(),
                             commitRequirements(), checksumRequirements(), inflateRequirements()}) {
        for (const Requirement& requirement : table)
            checkRequirement(library, requirement, report);
    }
    // Its handles are the runtime's own: there is none that it could be asked about.
    std::puts(
        "note  modeIsOverwrite: is not called here, since only the runtime can make a handle");
}

}  // namespace

Finding reportOn(const fs::path& library) {
    requireThatItLoads(library);
    Report report;
    checkPresence(library, report);
    const bool isComplete = report.failures == 0;
    if (isComplete) checkRequirements(library, report);
    std::printf("%d requirements, %d failed\n", report.requirements, report.failures);
    if (!isComplete) return Finding::functionsMissing;
    return report.failures == 0 ? Finding::allHold : Finding::someFail;
}

}  // namespace vesk::hostcheck
