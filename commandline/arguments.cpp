// SPDX-License-Identifier: MIT
// The verbs, their options and their help texts.
#include "commandline/arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "commandline/usage_complaint.h"

namespace vesk::commandline {

namespace {

constexpr const char* programName = "vesk-archive";

/// The options of both verbs, as given.
struct Options {
    std::string archive;
    std::string tree;
    std::string format;
    std::string module;
    bool overwrite = false;
    bool sync = false;
    bool quiet = false;
};

/// Returns what is wrong with the format's name; empty if it is known.
std::string formatProblem(const std::string& name) {
    return name == "tar" || name == "tgz" ? "" : "'" + name + "' is neither tar nor tgz";
}

void addCommonOptions(CLI::App& verb, Options& options, const std::string& formatHelp,
                      const std::string& overwriteHelp) {
    verb.add_option("--format", options.format, formatHelp)
        ->check(formatProblem)
        ->option_text("tar|tgz");
    verb.add_flag("--overwrite", options.overwrite, overwriteHelp)->disable_flag_override();
    verb.add_flag("--sync", options.sync, "Do not end before all of it is on the disk")
        ->disable_flag_override();
    verb.add_flag("--quiet", options.quiet, "Say nothing but errors")->disable_flag_override();
    verb.add_option("--module", options.module, "Load the archive module from this file")
        ->option_text("PATH");
}

CLI::Option* addName(CLI::App& verb, const std::string& placeholder, std::string& name,
                     const std::string& help) {
    return verb.add_option(placeholder, name, help)->required()->option_text(" ");
}

CLI::App* addMake(CLI::App& program, Options& options) {
    CLI::App* make =
        program.add_subcommand("make", "Make an archive of a file or a directory, not compressed");
    addName(*make, "SOURCE", options.tree, "The file or directory to store; its regular files");
    addName(*make, "ARCHIVE", options.archive, "The file to write");
    addCommonOptions(*make, options, "The format; otherwise told by .tar, .tgz or .tar.gz",
                     "Replace ARCHIVE if it exists");
    make->footer("Example: vesk-archive make photos photos.tar.gz");
    return make;
}

CLI::App* addUnpack(CLI::App& program, Options& options) {
    CLI::App* unpack = program.add_subcommand("unpack", "Unpack an archive: whole or not at all");
    addName(*unpack, "ARCHIVE", options.archive, "The archive to read");
    addName(*unpack, "DESTINATION", options.tree, "The directory to create from it");
    addCommonOptions(*unpack, options, "The format; otherwise told by what ARCHIVE begins with",
                     "Replace DESTINATION and all it holds if it exists");
    unpack->footer(
        "Example: vesk-archive unpack photos.tar.gz photos\n"
        "To list an archive, use `tar tvf ARCHIVE` or, for tgz, `tar tzvf ARCHIVE`.");
    return unpack;
}

std::optional<ArchiveFormat> chosenFormat(const Options& options, Verb verb) {
    if (options.format == "tar") return ArchiveFormat::tar;
    if (options.format == "tgz") return ArchiveFormat::tgz;
    if (verb == Verb::make) return formatOfName(options.archive);
    return std::nullopt;
}

UsageError usageError(const CLI::App& program, const std::string& message) {
    const auto verbs = program.get_subcommands();
    const std::string helped = verbs.empty() ? "" : " " + verbs.front()->get_name();
    return {message, std::string("Try '") + programName + helped + " --help'."};
}

std::variant<Arguments, Information, UsageError> request(const CLI::App& program,
                                                         const Options& options, Verb verb) {
    const auto format = chosenFormat(options, verb);
    if (verb == Verb::make && !format) {
        return usageError(program, "the name '" + options.archive +
                                       "' tells no format: end it in .tar or .tgz, or add " +
                                       "--format tar or --format tgz");
    }
    return Arguments{verb,   options.archive,   options.tree, options.module,
                     format, options.overwrite, options.sync, options.quiet};
}

/// The parser takes the word `++` for the end of a verb. So it gets another word instead, one that
/// does not occur on the command line.
class PlusSigns {
public:
    explicit PlusSigns(std::vector<std::string>& words) {
        const auto holdsSubstitute = [this](const std::string& text) {
            return text.find(substitute_) != std::string::npos;
        };
        do {
            substitute_ += '\1';
        } while (std::any_of(words.begin(), words.end(), holdsSubstitute));
        std::replace(words.begin(), words.end(), word, substitute_);
    }

    std::string restored(std::string text) const {
        for (auto at = text.find(substitute_); at != std::string::npos; at = text.find(substitute_))
            text.replace(at, substitute_.size(), word);
        return text;
    }

private:
    const std::string word = "++";
    std::string substitute_ = word;
};

}  // namespace

std::variant<Arguments, Information, UsageError> parseArguments(int argc, const char* const* argv) {
    Options options;
    CLI::App program(
        "Makes and unpacks TAR archives, plain (tar) or wrapped in gzip (tgz). What it makes is "
        "not\n"
        "compressed; what it unpacks may be.",
        programName);
    program.set_version_flag("--version", std::string(programName) + " " VESK_ARCHIVE_VERSION);
    program.require_subcommand(1);
    const CLI::App* make = addMake(program, options);
    addUnpack(program, options);
    program.footer("Example: vesk-archive make photos photos.tar.gz");

    std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    const PlusSigns plusSigns(words);
    try {
        // The parser expects the words in reverse order.
        program.parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::Success& wanted) {
        std::ostringstream text;
        program.exit(wanted, text, text);
        return Information{text.str()};
    } catch (const CLI::ParseError& error) {
        return usageError(program, plusSigns.restored(complaintOf(program, words, error)));
    }
    for (std::string* const name : {&options.archive, &options.tree, &options.module})
        *name = plusSigns.restored(*name);
    return request(program, options, make->parsed() ? Verb::make : Verb::unpack);
}

}  // namespace vesk::commandline
