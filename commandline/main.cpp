// SPDX-License-Identifier: MIT
// vesk-archive: makes and unpacks archives with the archive module, which it calls as the runtime
// does.
//
// Exit status: 0 success; 1 the module raised an exception; 2 wrong usage; 3 the module cannot be
// loaded, a C++ exception left it, or memory is insufficient. If a signal interrupts the program,
// it ends by that signal.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "commandline/archive_work.h"
#include "commandline/arguments.h"
#include "commandline/interruption.h"
#include "commandline/last_words.h"
#include "commandline/mistake.h"
#include "commandline/module_library.h"
#include "commandline/remarks.h"
#include "commandline/terminal.h"
#include "commandline/wording.h"
#include "explanation/explanation.h"

using namespace vesk::commandline;

namespace {

constexpr int done = 0;
constexpr int raised = 1;
constexpr int wrongUsage = 2;
constexpr int cannotRun = 3;
constexpr int interrupted = -1;  // end by the noted signal

void complain(const std::string& message) {
    if (mayTellTheEnd()) say("vesk-archive: " + message);
}

std::string inSeconds(std::chrono::duration<double> time) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.2f s", time.count());
    return text.data();
}

void sayOutcome(const Arguments& arguments, const Outcome& outcome) {
    std::string line = arguments.verb == Verb::make
                           ? "made " + arguments.archive
                           : "unpacked " + arguments.archive + " to " + arguments.tree;
    line += ": " + counted(outcome.entries, "entry", "entries");
    if (outcome.archiveBytes) line += ", " + counted(*outcome.archiveBytes, "byte", "bytes");
    const std::vector<std::string> remarks = remarksOn(outcome);
    if (!mayTellTheEnd()) return;
    say(line + ", " + inSeconds(outcome.time));
    for (const std::string& remark : remarks)
        say(remark);
}

const char* adviceOn(const vesk::standin::Leftover& leftover) {
    if (leftover.isOldTree) return "is what was at the destination: it could not be moved back";
    return leftover.holdsMount
               ? "could not be deleted: something is mounted in it; unmount that, then remove it"
               : "could not be deleted whole: it is of no use and can be removed";
}

/// Reports what the stand-in host could not delete or put back. That is no failure of the work.
void sayLeftover() {
    const auto leftover = vesk::standin::takeLeftover();
    if (leftover) say("vesk-archive: '" + leftover->path.native() + "' " + adviceOn(*leftover));
}

/// Says where the fault is and what to do about it, if that can be found.
void sayExplanation(const Arguments& arguments, const std::string& message) {
    const ArchiveFormat format =
        arguments.format ? *arguments.format : formatOfContents(arguments.archive);
    Arguments overwriting = arguments;
    overwriting.overwrite = true;
    const vesk::explanation::FailedCall call{.isMaking = arguments.verb == Verb::make,
                                             .isGzip = format == ArchiveFormat::tgz,
                                             .archive = arguments.archive,
                                             .tree = arguments.tree,
                                             .message = message,
                                             .mayOverwrite = !mistakeIn(overwriting)};
    for (const std::string& line : vesk::explanation::explain(call))
        say("  " + line);
}

/// Work that is done stays done. The status says so even if no memory is left for the summary.
template <typename Function>
void withMemoryAtHand(const Function& sayIt) {
    try {
        sayIt();
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    }
}

int carryOutAndTell(const Arguments& arguments, std::string& raisedMessage) {
    try {
        if (const auto mistake = mistakeIn(arguments)) {
            complain(*mistake);
            return wrongUsage;
        }
        const auto result = carryOut(arguments);
        if (const auto* error = std::get_if<vesk::standin::PendingError>(&result)) {
            complain(error->className + ": " + error->message);
            raisedMessage = error->message;
            return raised;
        }
        if (!arguments.quiet)
            withMemoryAtHand([&] { sayOutcome(arguments, std::get<Outcome>(result)); });
        return done;
    } catch (const Interruption&) {
        sayLastWords();
        return interrupted;
    } catch (const ModuleError& error) {
        complain(error.what());
        return cannotRun;
    }
}

int run(const Arguments& arguments) {
    if (arguments.verb == Verb::unpack) expectUnpacking(arguments.tree);
    noteInterruptions();
    std::string message;
    const int status = carryOutAndTell(arguments, message);
    withMemoryAtHand(sayLeftover);
    if (status != done) withMemoryAtHand(sayMakingLeftover);
    if (status == raised && !arguments.quiet) {
        // Everything but the reason has been said: from now on a signal need not wait.
        endIfInterrupted();
        withMemoryAtHand([&] { sayExplanation(arguments, message); });
    }
    return status;
}

int runWords(int argc, char** argv) {
    const auto parsed = parseArguments(argc, argv);
    if (const auto* information = std::get_if<Information>(&parsed)) {
        writeText(STDOUT_FILENO, information->text);
        return done;
    }
    if (const auto* error = std::get_if<UsageError>(&parsed)) {
        complain(error->message);
        say(error->hint);
        return wrongUsage;
    }
    return run(std::get<Arguments>(parsed));
}

// A vector beyond its largest size throws length_error: that is a lack of memory, too.
int notEnoughMemory() {
    complain(
        "not enough memory: archives are held in memory whole; free some or handle less at once");
    return cannotRun;
}

int statusOf(int argc, char** argv) {
    try {
        return runWords(argc, argv);
    } catch (const std::bad_alloc&) {
        return notEnoughMemory();
    } catch (const std::length_error&) {
        return notEnoughMemory();
    } catch (const std::exception& failure) {
        complain(std::string("the archive module failed: ") + failure.what());
        return cannotRun;
    }
}

}  // namespace

int main(int argc, char** argv) {
    prepareStandardStreams();
    const int status = statusOf(argc, argv);
    endIfInterrupted();
    return status;
}
