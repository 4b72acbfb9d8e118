// SPDX-License-Identifier: MIT
// Putting the live line together for the terminal's width.
#include "commandline/progress_text.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>

#include "commandline/wording.h"

namespace vesk::commandline {

namespace {

using std::chrono::seconds;

enum class Unit { none, names, entries, bytes };

/// A stage's name and the unit that it counts.
struct StageWords {
    const char* name;
    Unit unit;
};

StageWords wordsOf(Stage stage) {
    switch (stage) {
        case Stage::walking:
            return {"walking", Unit::names};
        case Stage::readingFiles:
            return {"reading", Unit::entries};
        case Stage::writing:
            return {"writing", Unit::none};
        case Stage::readingArchive:
            return {"reading", Unit::none};
        case Stage::decoding:
            return {"decoding", Unit::bytes};
        case Stage::unpacking:
            return {"unpacking", Unit::entries};
        case Stage::moving:
            return {"moving into place", Unit::none};
    }
    return {"working", Unit::none};
}

std::string inTime(seconds time) {
    return time < seconds(120) ? std::to_string(time.count()) + " s"
                               : std::to_string(time.count() / 60) + " min";
}

std::string inMegabytes(std::uint64_t bytes) {
    return std::to_string(bytes / 1'000'000);
}

/// How much is done and, if that is known, of how much.
std::string figures(Unit unit, const Moment& moment) {
    const bool hasTotal = moment.total > 0;
    const std::uint64_t last = hasTotal ? moment.total : moment.done;
    const std::string of = hasTotal ? std::to_string(moment.done) + " of " : "";
    switch (unit) {
        case Unit::names:
            return of + counted(last, "name", "names");
        case Unit::entries:
            return of + counted(last, "entry", "entries");
        case Unit::bytes:
            return inMegabytes(moment.done) + " of " + inMegabytes(last) + " MB";
        case Unit::none:
            break;
    }
    return "";
}

std::string share(const Moment& moment) {
    return std::to_string(moment.done * 100 / moment.total) + " %";
}

/// Empty until there is something to estimate from.
std::string timeLeft(const Moment& moment, std::chrono::steady_clock::time_point now) {
    const std::chrono::duration<double> taken = now - moment.stageBegan;
    if (moment.done == 0 || taken < seconds(1)) return "";
    const auto done = static_cast<double>(moment.done);
    const auto left = taken * (static_cast<double>(moment.total - moment.done) / done);
    return ", " + inTime(std::chrono::round<seconds>(left)) + " left";
}

std::string bar(const Moment& moment, std::size_t width) {
    const auto filled = static_cast<std::size_t>(moment.done * width / moment.total);
    return " [" + std::string(filled, '#') + std::string(width - filled, '.') + "]";
}

/// The first text that fits; if none does, the beginning of the last one.
std::string fitting(std::initializer_list<std::string> texts, std::size_t width) {
    for (const std::string& text : texts) {
        if (text.size() <= width) return text;
    }
    return std::prev(texts.end())->substr(0, width);
}

}  // namespace

std::string progressText(Moment moment, std::chrono::steady_clock::time_point start,
                         std::chrono::steady_clock::time_point now, std::size_t columns) {
    constexpr std::size_t shortestBar = 10;
    constexpr std::size_t longestBar = 30;
    constexpr std::size_t brackets = 3;
    const std::size_t width = columns - 1;
    const StageWords words = wordsOf(moment.stage);
    const std::string stage = words.name;
    if (moment.done > moment.total) moment.total = 0;  // more was added after the count
    const std::string count = words.unit == Unit::none ? "" : ": " + figures(words.unit, moment);
    if (moment.total == 0) {
        const std::string taken =
            ", " + inTime(std::chrono::duration_cast<seconds>(now - start)) + " so far";
        return fitting({stage + count + taken, stage + taken, stage}, width);
    }

    const std::string left = share(moment) + timeLeft(moment, now);
    const std::string all = stage + count + ", " + left;
    const std::size_t room = width - std::min(width, all.size() + brackets);
    const std::string drawn = bar(moment, std::clamp(room, shortestBar, longestBar));
    return fitting({stage + count + drawn + " " + left, all, stage + ": " + left,
                    stage + ": " + share(moment), stage},
                   width);
}

}  // namespace vesk::commandline
