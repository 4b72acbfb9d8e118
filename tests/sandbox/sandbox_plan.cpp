// SPDX-License-Identifier: MIT
// Random sandboxes. There are few names, so that they collide. Kinds and permissions are those that
// make a difference.
#include "tests/sandbox/sandbox_plan.h"

#include <algorithm>
#include <set>

namespace vesk::testing {

namespace {

constexpr int deepest = 3;

class Planner {
public:
    Planner(RandomSource& random, const ActingUser& user, std::string top)
        : random_(random), user_(user), top_(std::move(top)) {}

    SandboxPlan plan() {
        addGuards();
        fill(plannedRoot(), 0);
        for (PlannedThing& thing : plan_.things) {
            if (S_ISLNK(thing.type)) thing.content = linkTarget(thing.path);
        }
        plan_.workingDirectory = random_.oneOf(directories_);
        return std::move(plan_);
    }

private:
    void addGuards() {
        std::string path;
        for (const std::string& part : splitPath(plannedRoot())) {
            path += (path.empty() ? "" : "/") + part;
            add(path, S_IFDIR, random_.chance(75) ? 0755 : 01777);
        }
    }

    void fill(const std::string& directory, int depth) {
        const std::size_t count = depth == 0 ? 3 + random_.below(5) : random_.below(4);
        for (std::size_t i = 0; i < count; ++i) {
            const std::string path = directory + "/" + randomName(random_);
            if (taken_.contains(path)) continue;
            const mode_t type = randomType(depth);
            add(path, type, S_ISDIR(type) ? directoryPermissions() : filePermissions());
            if (S_ISDIR(type)) fill(path, depth + 1);
        }
    }

    void add(const std::string& path, mode_t type, mode_t permissions) {
        const std::string content = S_ISREG(type) ? "content of " + path : "";
        plan_.things.push_back({path, type, permissions, randomOwner(), content});
        taken_.insert(path);
        if (S_ISDIR(type)) directories_.push_back(path);
    }

    mode_t randomType(int depth) {
        const std::size_t choice = random_.below(100);
        if (choice < 45) return depth < deepest ? S_IFDIR : S_IFREG;
        if (choice < 62) return S_IFREG;
        if (choice < 67) return S_IFIFO;
        return choice < 69 ? S_IFSOCK : S_IFLNK;
    }

    mode_t directoryPermissions() {
        static constexpr mode_t unusual[] = {0700,  0777, 0777, 0555,  0500,
                                             01777, 0000, 0444, 02775, 0311};
        return random_.chance(60) ? 0755 : random_.oneOf(unusual);
    }

    mode_t filePermissions() {
        static constexpr mode_t unusual[] = {0600, 0666, 0444, 0000};
        return random_.chance(75) ? 0644 : random_.oneOf(unusual);
    }

    ActingUser randomOwner() {
        static constexpr ActingUser others[] = {{0, 0}, ordinaryUser, {4321, 4321}};
        return random_.chance(80) ? user_ : random_.oneOf(others);
    }

    std::string linkTarget(const std::string& link) {
        const std::string own = parentOf(link);
        switch (random_.below(10)) {
            case 0:
                return random_.chance(50) ? ".." : "../..";
            case 1:
                return random_.chance(50) ? "nowhere" : "nowhere/deep";
            case 2:
                return link.substr(own.size() + 1);
            case 3:
                return randomName(random_);
            case 4:
                return random_.chance(50) ? "." : randomName(random_) + "/..";
            default:
                return pathOfSomething(own);
        }
    }

    /// Links usually lead to directories.
    std::string pathOfSomething(const std::string& from) {
        const std::string& goal =
            random_.chance(60) ? random_.oneOf(directories_) : random_.oneOf(plan_.things).path;
        const std::string slash = random_.chance(10) ? "/" : "";
        return (random_.chance(40) ? top_ + "/" + goal : relativePath(from, goal)) + slash;
    }

    static std::string parentOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

    RandomSource& random_;
    ActingUser user_;
    std::string top_;
    SandboxPlan plan_;
    std::vector<std::string> directories_;
    std::set<std::string> taken_;
};

}  // namespace

std::string plannedRoot() {
    std::string path = "g";
    for (int i = 1; i < guardCount; ++i)
        path += "/g";
    return path + "/root";
}

std::vector<std::string> splitPath(const std::string& path) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    while (begin < path.size()) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        if (end > begin) parts.push_back(path.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

std::string joinPath(const std::vector<std::string>& parts) {
    std::string path;
    for (const std::string& part : parts)
        path += (path.empty() ? "" : "/") + part;
    return path;
}

std::string relativePath(const std::string& from, const std::string& to) {
    const std::vector<std::string> start = splitPath(from);
    const std::vector<std::string> goal = splitPath(to);
    const auto parting = std::mismatch(start.begin(), start.end(), goal.begin(), goal.end());
    std::vector<std::string> parts(static_cast<std::size_t>(start.end() - parting.first), "..");
    parts.insert(parts.end(), parting.second, goal.end());
    return parts.empty() ? "." : joinPath(parts);
}

SandboxPlan randomPlan(RandomSource& random, const ActingUser& user, const std::string& top) {
    return Planner(random, user, top).plan();
}

std::string randomName(RandomSource& random) {
    static const std::string common[] = {"a", "b", "dst", "lnk", "else"};
    static const std::string hard[] = {"with space",
                                       "new\nline",
                                       "-rf",
                                       "--",
                                       ".hidden",
                                       "...",
                                       "..x",
                                       "\xC3\xBC\xE2\x82\xAC",
                                       "\xFF\xFE",
                                       "dst\xE2\x82",
                                       ".dst.vesk-unpacking-replacing-abcdef",
                                       std::string(255, 'L'),
                                       std::string(230, 'M')};
    return random.chance(70) ? random.oneOf(common) : random.oneOf(hard);
}

}  // namespace vesk::testing
