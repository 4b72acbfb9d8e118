// SPDX-License-Identifier: MIT
// Judging one run.
#include "tests/sandbox/make_judge.h"

#include <algorithm>
#include <set>
#include <vector>

namespace vesk::testing {

namespace {

class Judge {
public:
    Judge(const MakeCase& makeCase, const MakeScene& scene, const MakePrediction& prediction,
          const MakeResult& result, const std::string& title, Findings& findings)
        : case_(makeCase),
          scene_(scene),
          expected_(prediction),
          result_(result),
          title_(title),
          findings_(findings) {}

    void judge() {
        if (result_.end.status == 0) {
            judgeSuccess();
        } else {
            judgeFailure();
        }
    }

private:
    void judgeSuccess() {
        if (expected_.prediction.ending == Ending::failure)
            return find("succeeds in spite of " + expected_.prediction.reason, {});
        if (scene_.archive.there && !S_ISREG(scene_.archive.there->st_mode))
            return report("after a success on what is no file, ",
                          differences(scene_.before, result_.after));
        judgeArchive();
        report("after a success, ", differences(expectedAfter(), result_.after));
    }

    void judgeArchive() {
        const auto at = result_.after.find(result_.place);
        if (at == result_.after.end())
            return find("after a success, the path names no archive", {});
        const auto files = case_.container == Container::tar ? readTar(at->second.content)
                                                             : readTgz(at->second.content);
        if (!files) return find("after a success, the archive cannot be read", {});
        if (*files != expected_.files) find("after a success, the archive holds other files", {});
    }

    /// Returns the expected state: the earlier one, with the archive and the directories made for
    /// it.
    Snapshot expectedAfter() const {
        Snapshot after = scene_.before;
        for (const Difference& one : differences(scene_.before, result_.after)) {
            if (one.what == "appeared" && isMadeParent(one.path))
                after[one.path] = made(S_IFDIR | (0777U & ~case_.mask));
        }
        if (!after.contains(result_.place)) {
            after[result_.place] = made(S_IFREG | (0666U & ~case_.mask));
        } else {
            // The program may write into the file or replace it, so its mode is not predicted.
            after[result_.place] = result_.after.at(result_.place);
        }
        const auto at = result_.after.find(result_.place);
        if (at != result_.after.end()) after[result_.place].content = at->second.content;
        return after;
    }

    Thing made(mode_t mode) const { return {mode, scene_.user.uid, anyGroup, 0, {}}; }

    void judgeFailure() {
        const int status = result_.end.status;
        if (expected_.prediction.ending == Ending::success)
            find("fails in spite of " + expected_.prediction.reason, {});
        if (status != 1 && status != 2) find("fails with another status", {});
        if (expected_.isWrongUsage && status != 2)
            find("with status 1 refuses " + expected_.prediction.reason, {});
        if (!result_.end.error.starts_with("vesk-archive: ")) find("fails without a message", {});
        std::vector<Difference> all = differences(scene_.before, result_.after);
        std::erase_if(all, [&](const Difference& one) {
            return one.what == "appeared" && isMadeParent(one.path);
        });
        report("after a failure, ", all);
    }

    /// Returns the missing directories of the archive's path.
    bool isMadeParent(const std::string& path) const {
        if (!result_.after.at(path).isDirectory()) return false;
        const auto& passed = scene_.archive.passedMissing;
        const auto isAbove = [&](const std::string& missing) {
            return isAtOrBelow(fromTop(missing), path);
        };
        return isAbove(scene_.archive.path) || std::any_of(passed.begin(), passed.end(), isAbove);
    }

    std::string fromTop(const std::string& absolute) const {
        return absolute.substr(std::min(absolute.size(), scene_.top.size() + 1));
    }

    void report(const std::string& phase, const std::vector<Difference>& all) {
        std::set<std::string> kinds;
        for (const Difference& one : all) {
            const bool isLeftover =
                one.what == "appeared" && one.path.find(".vesk-") != std::string::npos;
            const bool isArchive = one.path == fromTop(scene_.archive.path);
            kinds.insert(phase + (isLeftover
                                      ? "there is a left-over"
                                      : (isArchive ? "the archive " : "something ") + one.what));
        }
        for (const std::string& kind : kinds)
            find(kind, all);
    }

    void find(const std::string& kind, const std::vector<Difference>& all) {
        std::string details = "  " + title_ + "\n  source " + visible(case_.source) +
                              ", which is " + visible(scene_.source.path) + "; archive " +
                              visible(case_.archive) + (case_.overwrite ? ", overwriting" : "") +
                              ", which is " + visible(scene_.archive.path) + "\n  status " +
                              std::to_string(result_.end.status) + " " +
                              visible(result_.end.error) + "\n";
        for (const Difference& one : all)
            details += "  " + visible(one.path) + " " + one.what + "\n";
        findings_.add(kind, details + "  before:\n" + listing(scene_.before));
    }

    const MakeCase& case_;
    const MakeScene& scene_;
    const MakePrediction& expected_;
    const MakeResult& result_;
    const std::string& title_;
    Findings& findings_;
};

}  // namespace

void judgeMake(const MakeCase& makeCase, const MakeScene& scene, const MakePrediction& prediction,
               const MakeResult& result, const std::string& title, Findings& findings) {
    Judge(makeCase, scene, prediction, result, title, findings).judge();
}

}  // namespace vesk::testing
