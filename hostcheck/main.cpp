// SPDX-License-Identifier: MIT
// vesk-host-check: checks that a runtime library meets the requirements of the archive module.
//
// The exit statuses are listed in vesk-host-check(1). SIGINT, SIGTERM and SIGHUP end the program as
// usual, but it first removes what it made for trials.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string_view>

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

constexpr const char* help =
    "Checks that a runtime library meets the requirements of the archive module.\n"
    "Usage: vesk-host-check LIBRARY\n"
    "       vesk-host-check --help | --version\n"
    "\n"
    "  LIBRARY    The shared library with the nine functions of host_runtime.h\n"
    "\n"
    "Prints one line for each requirement: pass, or FAIL with what was expected and what\n"
    "came. Lines with note are advice. Exit status: 0 every requirement holds; 1 one does\n"
    "not; 2 wrong usage; 3 the library cannot be loaded or lacks a function, or the\n"
    "report cannot be written.";

int complainOfUsage() {
    std::fputs("vesk-host-check: name one library\nTry 'vesk-host-check --help'.\n", stderr);
    return wrongUsage;
}

int check(const char* library) {
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

int run(std::string_view word) {
    if (word == "--help") return printLine(help), allHold;
    if (word == "--version") return printLine("vesk-host-check " VESK_HOST_CHECK_VERSION), allHold;
    if (word.empty() || word.front() == '-') return complainOfUsage();
    return check(word.data());
}

}  // namespace

int main(int argc, char** argv) {
    try {
        occupyStandardDescriptors();
        signalQueue();
        return argc == 2 ? run(argv[1]) : complainOfUsage();
    } catch (const Interrupted& interrupted) {
        endBy(interrupted.signal);
    } catch (const std::exception& failure) {
        // The text may contain a path, or come from an exception of the library.
        std::fprintf(stderr, "vesk-host-check: %s\n", printable(failure.what()).c_str());
        return cannotCheck;
    }
}
