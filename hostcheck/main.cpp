// SPDX-License-Identifier: MIT
// vesk-host-check: checks that a runtime library meets the requirements of the archive module.
//
// The exit statuses are listed in vesk-host-check(1). SIGINT, SIGTERM and SIGHUP end the program as
// usual, but it first removes what it made for trials.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "hostcheck/output.h"
#include "hostcheck/report.h"
#include "hostcheck/signal_queue.h"
#include "hostcheck/wording.h"

using namespace vesk::hostcheck;

namespace {

constexpr int allHold = 0;
constexpr int someFail = 1;
constexpr int wrongUsage = 2;
constexpr int cannotCheck = 3;

constexpr const char* programName = "vesk-host-check";

int check(const std::string& library) {
    // Made absolute, since a name without a slash is searched for among the system's libraries.
    switch (reportOn(std::filesystem::absolute(library))) {
        case Finding::allHold:
            return allHold;
        case Finding::someFail:
            return someFail;
        case Finding::functionsMissing:
            return cannotCheck;
    }
    return cannotCheck;
}

int complainOfUsage(const std::string& message) {
    std::fprintf(stderr, "%s: %s\nTry '%s --help'.\n", programName, printable(message).c_str(),
                 programName);
    return wrongUsage;
}

int run(int argc, const char* const* argv) {
    CLI::App program("Checks that a runtime library meets the requirements of the archive module.",
                     programName);
    program.set_version_flag("--version", std::string(programName) + " " VESK_HOST_CHECK_VERSION);
    std::string library;
    program.add_option("LIBRARY", library, "The shared library with the functions to check")
        ->required()
        ->option_text(" ")
        ->check([](const std::string& name) { return name.empty() ? "it is empty" : ""; });
    program.footer(
        "Prints one line for each requirement: pass, or FAIL with what was expected and what\n"
        "came. Lines with note are advice. Exit status: 0 every requirement holds; 1 one does\n"
        "not; 2 wrong usage; 3 the library cannot be loaded or lacks a function, or the\n"
        "report cannot be written.");

    try {
        program.parse(argc, argv);
    } catch (const CLI::Success& wanted) {
        std::ostringstream text;
        program.exit(wanted, text, text);
        std::string lines = text.str();
        lines.pop_back();
        printLine(lines);
        return allHold;
    } catch (const CLI::ParseError& error) {
        const std::vector<std::string> unknown = program.remaining();
        if (library.empty() && !unknown.empty() && unknown.front() != "--")
            return complainOfUsage("there is no option " + unknown.front());
        return complainOfUsage(error.what());
    }
    return check(library);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        occupyStandardDescriptors();
        signalQueue();
        return run(argc, argv);
    } catch (const Interrupted& interrupted) {
        endBy(interrupted.signal);
    } catch (const std::exception& failure) {
        // The text may contain a path, or come from an exception of the library.
        std::fprintf(stderr, "vesk-host-check: %s\n", printable(failure.what()).c_str());
        return cannotCheck;
    }
}
