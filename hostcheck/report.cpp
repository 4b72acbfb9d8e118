// SPDX-License-Identifier: MIT
// Runs the trials and prints their results.
#include "hostcheck/report.h"

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "hostcheck/child_process.h"
#include "hostcheck/output.h"
#include "hostcheck/requirement.h"
#include "hostcheck/scratch_directory.h"

namespace vesk::hostcheck {

namespace {

namespace fs = std::filesystem;

constexpr unsigned loadingSeconds = 60;

/// Prints lines and counts them.
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
    std::string line = deviation ? (isAdvice ? "note" : "FAIL") : "pass";
    line.append("  ").append(function).append(": ").append(promise);
    if (deviation) {
        line += isAdvice ? "; advised " : "; expected ";
        line += deviation->expected + "; came " + deviation->came;
    }
    printLine(line);
}

/// Loads the library in a child process: loading can crash and have lasting effects.
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

/// Prints nothing while scratch directories exist: if nobody reads the output any more, printing
/// ends the program, and they would stay behind.
std::optional<Deviation> deviationFrom(const Requirement& requirement, const fs::path& library) {
    std::vector<std::unique_ptr<ScratchDirectory>> scratch;
    std::vector<fs::path> places;
    for (const fs::path& parent : scratchParents()) {
        scratch.push_back(std::make_unique<ScratchDirectory>(parent));
        places.push_back(scratch.back()->path());
    }
    return deviationInChild([&] { attempt(library, requirement, places); }, requirement.seconds);
}

void checkRequirements(const fs::path& library, Report& report) {
    for (const auto table : {pendingRequirements(), pathRequirements(), stagingRequirements(),
                             commitRequirements(), checksumRequirements(), inflateRequirements()}) {
        for (const Requirement& requirement : table) {
            report.print(requirement.weight, requirement.function, requirement.promise,
                         deviationFrom(requirement, library));
        }
    }
    // Only the runtime can make a handle, so there is none to call it with.
    printLine(
        "note  modeIsOverwrite: is not called here, since only the runtime can make a handle");
}

}  // namespace

Finding reportOn(const fs::path& library) {
    requireThatItLoads(library);
    Report report;
    checkPresence(library, report);
    const bool isComplete = report.failures == 0;
    if (isComplete) checkRequirements(library, report);
    printLine(std::to_string(report.requirements) + " requirements, " +
              std::to_string(report.failures) + " failed");
    if (!isComplete) return Finding::functionsMissing;
    return report.failures == 0 ? Finding::allHold : Finding::someFail;
}

}  // namespace vesk::hostcheck
