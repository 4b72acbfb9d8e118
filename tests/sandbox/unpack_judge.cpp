// SPDX-License-Identifier: MIT
// Judging one call.
#include "tests/sandbox/unpack_judge.h"

#include <algorithm>
#include <cstdlib>
#include <set>
#include <vector>

#include "tests/sandbox/made_parents.h"

namespace vesk::testing {

namespace {

/// The messages about the destination. Messages that are due to the archive are not listed.
bool isAboutDestination(const std::string& message) {
    static const std::set<std::string> all = {
        "Cannot inspect destination",      "Destination already exists",
        "Destination cannot be replaced",  "Cannot create destination parent directory",
        "Cannot create staging directory", "Cannot move extracted files to destination",
        "Destination path is required",
    };
    return all.contains(message);
}

class Judge {
public:
    Judge(const UnpackCase& unpackCase, const UnpackScene& scene, const UnpackResult& result,
          const std::string& title, Findings& findings)
        : case_(unpackCase),
          scene_(scene),
          result_(result),
          title_(title),
          findings_(findings),
          prediction_(predictUnpack(unpackCase, scene)) {}

    void judge() {
        for (const std::string& path : result_.toldLeftovers) {
            if (!result_.after.contains(fromTop(scene_, path)))
                find("tells of a left-over that is not there", {});
        }
        if (!result_.message) {
            judgeSuccess();
        } else {
            judgeFailure();
        }
    }

private:
    void judgeSuccess() {
        if (prediction_.ending == Ending::failure)
            return find("succeeds in spite of " + prediction_.reason, {});
        std::vector<Difference> all = differences(afterUnpack(case_, scene_), result_.after);
        std::erase_if(all, [&](const Difference& one) { return isPartOfKeptOldTree(one); });
        std::erase_if(all, [&](const Difference& one) { return isPassedParent(one); });
        report("after a success, ", all);
    }

    void judgeFailure() {
        if (prediction_.ending == Ending::success)
            find("fails in spite of " + prediction_.reason + ": " + *result_.message, {});
        if (prediction_.ending == Ending::failure) judgeMessage();
        std::vector<Difference> all = differences(scene_.before, result_.after);
        if (toleratesMadeParents())
            std::erase_if(all, [&](const Difference& one) { return isMadeParent(one); });
        report("after a failure, ", all);
    }

    /// Where several things are wrong, any of their messages is right.
    void judgeMessage() {
        const std::string& message = *result_.message;
        const bool isDestinationGood = predictPlaceAlone().ending == Ending::success;
        if (message.empty()) find("fails without a text", {});
        if (!prediction_.message.empty() && message != prediction_.message)
            find("of " + prediction_.reason + " says: " + message, {});
        if (!case_.archive.isGood() && isDestinationGood && isAboutDestination(message))
            find("of " + prediction_.reason + " says: " + message, {});
        if (case_.archive.isGood() && !isAboutDestination(message))
            find("of " + prediction_.reason + " says: " + message, {});
    }

    Prediction predictPlaceAlone() const {
        UnpackCase good = case_;
        good.archive.damage = "";
        return predictUnpack(good, scene_);
    }

    /// An old tree that could not be deleted completely may stay beside the new one, under a name
    /// that says what it is.
    bool isPartOfKeptOldTree(const Difference& one) const {
        const std::string place = fromTop(scene_, scene_.place.path);
        if (one.what != "appeared" || !mayResistDeletion(scene_.before, place, scene_.user))
            return false;
        const std::string beside = parentOf(place) + "/.";
        if (!one.path.starts_with(beside) || one.path.find(".vesk-") == std::string::npos)
            return false;
        const auto& told = result_.toldLeftovers;
        return std::any_of(told.begin(), told.end(), [&](const std::string& path) {
            const std::string directory = fromTop(scene_, path);
            return one.path == directory || (isAtOrBelow(one.path, directory) &&
                                             isOldInode(result_.after.at(one.path).inode, place));
        });
    }

    bool isOldInode(ino_t inode, const std::string& place) const {
        return std::any_of(scene_.before.begin(), scene_.before.end(), [&](const auto& entry) {
            return isAtOrBelow(entry.first, place) && entry.second.inode == inode;
        });
    }

    /// `new/../out` makes the directory `new`.
    bool isPassedParent(const Difference& one) const {
        const auto& passed = scene_.place.passedMissing;
        return one.what == "appeared" && isEmptyDirectory(result_.after, one.path) &&
               std::any_of(passed.begin(), passed.end(), [&](const std::string& path) {
                   return isAtOrBelow(fromTop(scene_, path), one.path);
               });
    }

    bool isMadeParent(const Difference& one) const {
        const Thing& thing = one.what == "appeared" ? result_.after.at(one.path) : Thing{};
        return thing.isDirectory() &&
               (isPassedParent(one) || isAtOrBelow(fromTop(scene_, scene_.place.path), one.path));
    }

    void report(const std::string& phase, const std::vector<Difference>& all) {
        std::set<std::string> kinds;
        for (const Difference& one : all)
            kinds.insert(phase + kindOf(one));
        for (const std::string& kind : kinds)
            find(kind, all);
    }

    std::string kindOf(const Difference& one) const {
        if (one.what == "appeared" && one.path.find(".vesk-") != std::string::npos)
            return "there is a left-over";
        if (result_.message && isMadeParent(one)) return "a made parent stays";
        const std::string place = fromTop(scene_, scene_.place.path);
        if (one.path == place) return "the destination " + one.what;
        return "something " + std::string(isAtOrBelow(one.path, place) ? "in" : "outside") +
               " the destination " + one.what;
    }

    void find(const std::string& kind, const std::vector<Difference>& all) {
        std::string details = "  " + title_ + "\n  destination " + visible(case_.destination) +
                              (case_.overwrite ? ", overwriting" : "") + ", which is " +
                              visible(scene_.place.path) + "; archive with " +
                              (case_.archive.isGood() ? "nothing wrong" : case_.archive.damage) +
                              "\n  " + (result_.message ? *result_.message : "success") + "\n";
        for (const Difference& one : all)
            details += "  " + visible(one.path) + " " + one.what + "\n";
        findings_.add(kind, details + "  before:\n" + listing(scene_.before));
    }

    const UnpackCase& case_;
    const UnpackScene& scene_;
    const UnpackResult& result_;
    const std::string& title_;
    Findings& findings_;
    Prediction prediction_;
};

}  // namespace

void judgeUnpack(const UnpackCase& unpackCase, const UnpackScene& scene, const UnpackResult& result,
                 const std::string& title, Findings& findings) {
    Judge(unpackCase, scene, result, title, findings).judge();
}

}  // namespace vesk::testing
