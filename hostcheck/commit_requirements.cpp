// SPDX-License-Identifier: MIT
// The requirements for commitExtractionStaging.
#include <array>
#include <string>

#include "hostcheck/error_text.h"
#include "hostcheck/requirement.h"
#include "hostcheck/staged_tree.h"
#include "hostcheck/wording.h"

namespace vesk::hostcheck {

namespace {

namespace fs = std::filesystem;

fs::path prepareFilled(const Trial& trial, const fs::path& destination, bool overwrite = false) {
    fs::path staging = prepare(trial, destination, overwrite);
    fill(staging, sampleTree());
    return staging;
}

void movesEverything(const Trial& trial) {
    for (const fs::path& place : trial.places) {
        const fs::path staging = prepareFilled(trial, place / "out");
        commitSuccessfully(trial, staging, place / "out");
        expectTree(sampleTree(), place / "out");
    }
}

void movesAnEmptyTree(const Trial& trial) {
    const fs::path destination = trial.places.front() / "out";
    commitSuccessfully(trial, prepare(trial, destination), destination);
    expect(fs::is_directory(destination), "a directory at the destination", "none");
    expectTree({}, destination);
}

void leavesNothingToCleanUp(const Trial& trial) {
    for (const fs::path& place : trial.places) {
        const fs::path staging = prepareFilled(trial, place / "out");
        if (!commit(trial, staging, place / "out").succeeded) continue;
        expect(!fs::exists(staging), "nothing at " + inQuotes(staging.native()), "a directory");
        expect(namesIn(place) == inQuotes("out"), "nothing but the destination in its directory",
               namesIn(place));
    }
}

void replacesADestination(const Trial& trial) {
    const fs::path destination = trial.places.front() / "out";
    fill(destination, {{"both", "old"}, {"old", "old"}});
    const Tree extracted = {{"both", "new"}, {"new/", ""}, {"new/file", "new"}};
    const fs::path staging = prepare(trial, destination, true);
    fill(staging, extracted);
    commitSuccessfully(trial, staging, destination);
    // Whether old files stay beside the new ones is a separate requirement.
    fs::remove(destination / "old");
    expectTree(extracted, destination);
}

void keepsNothingOld(const Trial& trial) {
    const fs::path destination = trial.places.front() / "out";
    fill(destination, {{"old", "old"}});
    const fs::path staging = prepareFilled(trial, destination, true);
    if (!commit(trial, staging, destination).succeeded) return;
    expect(!fs::exists(destination / "old"), "nothing of the old tree", "old and new files mixed");
}

/// Returns everything beside `destination`, at all depths.
Tree surroundings(const fs::path& destination) {
    Tree tree = readTree(destination.parent_path());
    const std::string inside = destination.filename().native() + "/";
    std::erase_if(tree, [&](const auto& entry) { return entry.first.starts_with(inside); });
    return tree;
}

/// Replaces an old tree with the sample tree as the module does. Whether that succeeds is a
/// separate requirement.
void replaceOldTree(const Trial& trial, const fs::path& destination) {
    const fs::path staging = prepareFilled(trial, destination, true);
    if (!commit(trial, staging, destination).succeeded) trial.runtime.removeTree(staging);
}

/// A runtime may need a place for the old tree meanwhile, but every name may be in use.
void leavesNeighboursAlone(const Trial& trial) {
    const fs::path destination = trial.places.front() / "out";
    fill(destination, {{"old", "old"}});
    fill(trial.places.front(), neighbours());
    replaceOldTree(trial, destination);
    const std::string came = difference(neighbours(), surroundings(destination));
    expect(came.empty(), "everything beside the destination as it was", came);
}

void followsNoLinkInTheOldTree(const Trial& trial) {
    const fs::path& place = trial.places.front();
    // Not beside the destination: that is a separate requirement.
    const fs::path destination = place / "inner/out";
    fill(destination, {{"old", "old"}});
    linkElsewhere(destination, place / "elsewhere");
    replaceOldTree(trial, destination);
    expectElsewhere(place / "elsewhere");
}

void leavesErrorAlone(const Trial& trial) {
    const fs::path destination = trial.places.front() / "out";
    const fs::path staging = prepareFilled(trial, destination);
    const Answer answer = commit(trial, staging, destination, earlierText);
    if (answer.succeeded) expectLeftAlone(answer.error);
}

void findsADestinationWithDots(const Trial& trial) {
    const fs::path& place = trial.places.front();
    fill(place, {{"sub/deeper/", ""}});
    extractOneFile(trial, place / "./sub/deeper/./../.././out");
    expectTree({{"out/", ""}, {"out/a.txt", "alpha"}, {"sub/", ""}, {"sub/deeper/", ""}}, place);
}

void findsADestinationWithASlash(const Trial& trial) {
    const fs::path& place = trial.places.front();
    extractOneFile(trial, place / "out/");
    expectTree({{"out/", ""}, {"out/a.txt", "alpha"}}, place);
}

void followsALink(const Trial& trial) {
    const fs::path& place = trial.places.front();
    fill(place, {{"elsewhere/out/a.txt", "old"}});
    fs::create_directory_symlink("elsewhere/out", place / "link");
    extractOneFile(trial, place / "link", true);
    expect(fs::is_symlink(place / "link"), "the symbolic link as it was", "no link any more");
    expectTree({{"elsewhere/", ""},
                {"elsewhere/out/", ""},
                {"elsewhere/out/a.txt", "alpha"},
                {"link/", ""}},
               place);
}

/// Commits a staging directory that has vanished, which cannot succeed.
Answer commitNothing(const Trial& trial) {
    const fs::path destination = trial.places.front() / "out";
    const fs::path staging = prepareFilled(trial, destination);
    makeVanish(staging);
    return commit(trial, staging, destination, earlierText);
}

void reportsFailure(const Trial& trial) {
    expect(!commitNothing(trial).succeeded, "false when the staging directory has vanished",
           "true");
}

void replacesErrorWhenItFails(const Trial& trial) {
    const Answer answer = commitNothing(trial);
    if (!answer.succeeded) expectReplaced(answer.error);
}

void keepsTheOldTreeWhenItFails(const Trial& trial) {
    const fs::path destination = trial.places.front() / "out";
    const Tree oldTree = {{"old", "old"}, {"sub/", ""}, {"sub/older", "older"}};
    fill(destination, oldTree);
    const fs::path staging = prepareFilled(trial, destination, true);
    makeVanish(staging);
    commit(trial, staging, destination);
    const Tree came = readTree(destination);
    expect(came == oldTree, "the old tree after a commit whose staging directory has vanished",
           came.empty() ? "nothing" : "another tree");
}

/// There is no permission to overwrite what appears before the commit.
void sparesWhatAppeared(const Trial& trial) {
    const fs::path destination = trial.places.front() / "out";
    const fs::path staging = prepareFilled(trial, destination);
    fill(destination, {{"other", "other"}});
    commit(trial, staging, destination);
    expect(readTree(destination) == Tree{{"other", "other"}},
           "what appeared at the destination after it was found free", "another tree");
}

constexpr Weight requirement = Weight::requirement;
constexpr const char* committing = "commitExtractionStaging";

constexpr std::array<Requirement, 15> requirements = {{
    {requirement, committing, "moves everything to the destination", movesEverything},
    {requirement, committing, "moves an empty tree", movesAnEmptyTree},
    {requirement, committing, "leaves nothing to clean up", leavesNothingToCleanUp},
    {requirement, committing, "replaces an existing destination that may be replaced",
     replacesADestination},
    {requirement, committing, "finds a destination that is spelled with dots",
     findsADestinationWithDots},
    {requirement, committing, "finds a destination that is spelled with a slash at its end",
     findsADestinationWithASlash},
    {requirement, committing, "replaces the directory that a symbolic link leads to", followsALink},
    {Weight::advice, committing, "keeps nothing of what it replaces", keepsNothingOld},
    {requirement, committing, "leaves everything beside the destination as it was",
     leavesNeighboursAlone},
    {requirement, committing, "follows no link in the tree that it replaces",
     followsNoLinkInTheOldTree},
    {requirement, committing, "leaves the error text alone when it succeeds", leavesErrorAlone},
    {requirement, committing, "reports when it cannot move the tree", reportsFailure},
    {requirement, committing, "replaces the error text when it fails", replacesErrorWhenItFails},
    {requirement, committing, "keeps the old tree when it fails", keepsTheOldTreeWhenItFails},
    {requirement, committing, "spares what appeared at the destination meanwhile",
     sparesWhatAppeared},
}};

}  // namespace

std::span<const Requirement> commitRequirements() {
    return requirements;
}

}  // namespace vesk::hostcheck
