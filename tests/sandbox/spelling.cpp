// SPDX-License-Identifier: MIT
// Random paths: chooses a target first, then a spelling for it.
#include "tests/sandbox/spelling.h"

#include <climits>
#include <vector>

#include "tests/sandbox/kernel_place.h"
#include "tests/sandbox/snapshot.h"

namespace vesk::testing {

namespace {

std::string repeated(const std::string& text, std::size_t count) {
    std::string all;
    while (count-- > 0)
        all += text;
    return all;
}

class Speller {
public:
    Speller(RandomSource& random, const Surroundings& around) : random_(random), around_(around) {
        for (const PlannedThing& thing : around_.plan.things) {
            const bool isDirectory = S_ISDIR(thing.type);
            if (isDirectory) directories_.push_back(thing.path);
            if (isDirectory || around_.links.contains(thing.path))
                passable_[parentOf(thing.path)].push_back(thing.path);
        }
    }

    std::string spell() {
        if (random_.chance(6)) return special();
        return written(throughLink(goal())) + trail();
    }

private:
    std::string special() {
        const std::string tooLong(NAME_MAX + 1, 'x');
        const std::string all[] = {"",
                                   ".",
                                   "./",
                                   ".//.",
                                   "..",
                                   "../",
                                   "../..",
                                   "missing/..",
                                   "missing/../dst",
                                   "missing/./dst",
                                   tooLong,
                                   "missing/" + tooLong,
                                   repeated("./", PATH_MAX / 2) + "dst",
                                   "dst" + repeated("/.", PATH_MAX / 2)};
        return random_.oneOf(all);
    }

    std::string goal() {
        const std::size_t choice = random_.below(100);
        if (choice < 60) return random_.oneOf(around_.plan.things).path;
        std::string path = random_.oneOf(directories_) + "/" + randomName(random_);
        if (choice >= 88) path += "/" + randomName(random_);
        if (choice >= 96) path += "/" + randomName(random_);
        return path;
    }

    /// Uses a link instead of the directory that it leads to, if one leads to the target or above
    /// it.
    std::string throughLink(const std::string& goal) {
        if (!random_.chance(35)) return goal;
        std::vector<std::string> ways;
        for (const auto& [link, directory] : around_.links) {
            if (isAtOrBelow(goal, directory)) ways.push_back(link + goal.substr(directory.size()));
        }
        return ways.empty() ? goal : random_.oneOf(ways);
    }

    std::string written(const std::string& goal) {
        const std::string& from = around_.plan.workingDirectory;
        const bool isAbsolute = random_.chance(35);
        here_ = isAbsolute ? "" : from;
        known_ = true;
        std::string path = isAbsolute ? around_.top + slash() : "";
        std::string between;
        for (const std::string& part : splitPath(isAbsolute ? goal : relativePath(from, goal))) {
            path += between + detour() + part;
            stepTo(part);
            between = slash();
        }
        return path;
    }

    /// Goes into something and back, which leads elsewhere if that is a link.
    std::string detour() {
        const auto ways = passable_.find(here_);
        if (!known_ || ways == passable_.end() || !random_.chance(12)) return "";
        const std::string& into = random_.oneOf(ways->second);
        const auto link = around_.links.find(into);
        if (link != around_.links.end()) here_ = parentOf(link->second);
        return into.substr(parentOf(into).size() + 1) + slash() + ".." + slash();
    }

    void stepTo(const std::string& part) {
        if (part == "..") {
            here_ = parentOf(here_);
            return;
        }
        here_ += (here_.empty() ? "" : "/") + part;
        const auto link = around_.links.find(here_);
        if (link != around_.links.end()) here_ = link->second;
        known_ = link != around_.links.end() || passable_.contains(here_);
    }

    std::string slash() {
        const std::size_t choice = random_.below(100);
        if (choice < 88) return "/";
        return choice < 94 ? "//" : "/./";
    }

    std::string trail() {
        static const std::string ends[] = {"/", "/", "//", "/.", "/./", "/.//."};
        return random_.chance(70) ? "" : random_.oneOf(ends);
    }

    RandomSource& random_;
    const Surroundings& around_;
    std::vector<std::string> directories_;
    std::map<std::string, std::vector<std::string>> passable_;  // by the directory that holds them
    std::string here_;   // where the path written so far leads to, from the top
    bool known_ = true;  // unless it leads out of what is there
};

bool climbsTooHigh(const std::string& path) {
    int count = 0;
    for (const std::string& part : splitPath(path))
        count += part == ".." ? 1 : 0;
    return count > guardCount;
}

/// Returns `path` relative to `top`, or nothing when it is not below.
std::string fromTop(const std::string& path, const std::string& top) {
    return path != top && isAtOrBelow(path, top) ? path.substr(top.size() + 1) : "";
}

}  // namespace

Surroundings surroundingsOf(const std::string& top, const SandboxPlan& plan) {
    Surroundings around{top, plan, {}};
    for (const PlannedThing& thing : plan.things) {
        if (!S_ISLNK(thing.type)) continue;
        const KernelPlace place = findPlace(top + "/" + thing.path);
        const bool isDirectory = place.there && S_ISDIR(place.there->st_mode);
        const std::string path = isDirectory ? fromTop(place.path, top) : "";
        if (!path.empty()) around.links[thing.path] = path;
    }
    return around;
}

std::string randomSpelling(RandomSource& random, const Surroundings& around) {
    Speller speller(random, around);
    std::string path;
    do {
        path = speller.spell();
    } while (climbsTooHigh(path));
    return path;
}

}  // namespace vesk::testing
