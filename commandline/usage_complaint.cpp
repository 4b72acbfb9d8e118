// SPDX-License-Identifier: MIT
// Finding the wrong word.
#include "commandline/usage_complaint.h"

#include <algorithm>
#include <iterator>

namespace vesk::commandline {

namespace {

using Words = std::vector<std::string>;

std::string quoted(const std::string& word) {
    return "'" + word + "'";
}

Words beforeTwoDashes(const Words& words) {
    return {words.begin(), std::find(words.begin(), words.end(), "--")};
}

bool looksLikeOption(const std::string& word) {
    return word.size() > 1 && word.front() == '-';
}

std::string complaintWithoutVerb(const Words& words) {
    if (words.empty() || words.front() == "--") return "say what to do: make or unpack";
    return looksLikeOption(words.front())
               ? "say what to do, make or unpack, before " + quoted(words.front())
               : quoted(words.front()) + " is neither make nor unpack";
}

/// The option that was probably meant: one that begins like the word.
std::string guess(const CLI::App& verb, const std::string& word) {
    constexpr std::size_t enough = 4;  // the dashes and two letters
    for (const CLI::Option* option : verb.get_options()) {
        std::string name = option->get_name();
        if (word.size() >= enough && name.starts_with(word.substr(0, enough))) return name;
    }
    return "";
}

std::string complaintOfOption(const CLI::App& verb, const std::string& word) {
    const std::string problem = verb.get_name() + " has no option " + quoted(word);
    if (!word.starts_with("--")) return problem + ": for a name, type " + quoted("./" + word);
    const std::string meant = guess(verb, word);
    return meant.empty() ? problem : problem + ": is " + meant + " meant?";
}

/// For a flag with a value, or an option without a value or given more than once. Empty if there is
/// neither.
std::string complaintOfValue(const CLI::App& verb, const Words& words) {
    for (const CLI::Option* option : verb.get_options()) {
        if (option->get_positional()) continue;
        const std::string name = option->get_name();
        const bool isFlag = option->get_items_expected_max() == 0;
        const auto giving = std::find_if(words.begin(), words.end(), [&](const std::string& word) {
            return word.starts_with(name + "=");
        });
        if (isFlag && giving != words.end())
            return quoted(*giving) + ": " + name + " takes no value";
        if (isFlag) continue;
        if (option->count() > 1) return name + " is given more than once";
        const bool isBare =
            words.back() == name || (giving != words.end() && *giving == name + "=");
        if (isBare) return "nothing follows " + name;
    }
    return "";
}

/// The names that a verb takes, and those that were given.
struct Names {
    std::string wanted;
    Words given;
};

Names namesOf(const CLI::App& verb) {
    Names names;
    for (const CLI::Option* option : verb.get_options()) {
        if (!option->get_positional()) continue;
        names.wanted += (names.wanted.empty() ? "" : " and ") + option->get_name();
        if (option->count() > 0) names.given.push_back(option->results().front());
    }
    return names;
}

std::string complaintOfNames(const CLI::App& verb, const Words& tooMany) {
    const Names names = namesOf(verb);
    if (!tooMany.empty())
        return verb.get_name() + " takes " + names.wanted + ": " + quoted(tooMany.front()) +
               " is too much";
    const std::string needed = verb.get_name() + " needs " + names.wanted;
    return names.given.empty() ? needed
                               : needed + ": only " + quoted(names.given.front()) + " was given";
}

}  // namespace

std::string complaintOf(const CLI::App& program, const Words& words, const CLI::ParseError& error) {
    const auto verbs = program.get_subcommands();
    const bool beginsWithVerb = !verbs.empty() && words.front() == verbs.front()->get_name();
    if (!beginsWithVerb) return complaintWithoutVerb(words);

    const CLI::App& verb = *verbs.front();
    const Words options = beforeTwoDashes(words);
    Words unknown = program.remaining(true);
    unknown.erase(std::remove(unknown.begin(), unknown.end(), "--"), unknown.end());
    const auto isOption = [&options](const std::string& word) {
        return looksLikeOption(word) &&
               std::find(options.begin(), options.end(), word) != options.end();
    };
    const auto option = std::find_if(unknown.begin(), unknown.end(), isOption);
    if (option != unknown.end()) return complaintOfOption(verb, *option);
    std::string value = complaintOfValue(verb, options);
    if (!value.empty()) return value;
    const bool isAboutNames = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr ||
                              dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    return isAboutNames ? complaintOfNames(verb, unknown) : error.what();
}

}  // namespace vesk::commandline
