// SPDX-License-Identifier: MIT
// The requirements for prepareExtractionStaging and removeExtractionTree.
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include "hostcheck/error_text.h"
#include "hostcheck/requirement.h"
#include "hostcheck/staged_tree.h"
#include "hostcheck/wording.h"

namespace vesk::hostcheck {

namespace {

namespace fs = std::filesystem;

void expectFresh(const fs::path& staging) {
    expect(!staging.empty(), "the path of the staging directory", "an empty path");
    expect(fs::is_directory(staging), "a directory at " + inQuotes(staging.native()), "none");
    expect(fs::is_empty(staging), "an empty directory", namesIn(staging) + " in it");
}

void givesAnEmptyDirectory(const Trial& trial) {
    for (const fs::path& place : trial.places)
        expectFresh(prepare(trial, place / "out"));
}

void givesAnotherDirectory(const Trial& trial) {
    const fs::path destination = trial.places.front() / "out";
    fill(prepare(trial, destination), sampleTree());
    expect(!fs::exists(prepare(trial, destination) / "a.txt"), "a directory of its own",
           "the one that was left behind");
}

void takesARelativeDestination(const Trial& trial) {
    extractOneFile(trial, "out");
    expectTree(oneFile(), trial.places.front() / "out");
}

/// The module forms its targets below the normal form of the path. There, ".." removes the name
/// before it, even if that is a symbolic link to a directory elsewhere.
void keepsItsMeaningInNormalForm(const Trial& trial) {
    const fs::path& place = trial.places.front();
    fill(place, {{"elsewhere/directory/", ""}});
    fs::create_directory_symlink("elsewhere/directory", place / "link");
    const fs::path staging = prepare(trial, place / "link/../out");
    const fs::path normal = staging.lexically_normal();
    std::error_code error;
    expect(fs::equivalent(staging, normal, error),
           "the directory " + inQuotes(staging.native()) + " at " + inQuotes(normal.native()),
           fs::exists(normal) ? "another one" : "nothing there");
    fill(staging, oneFile());
    commitSuccessfully(trial, staging, place / "link/../out");
    expectTree({{"elsewhere/", ""},
                {"elsewhere/directory/", ""},
                {"elsewhere/out/", ""},
                {"elsewhere/out/a.txt", "alpha"},
                {"link/", ""}},
               place);
}

void leavesErrorAlone(const Trial& trial) {
    fs::path staging;
    std::string error = earlierText;
    if (trial.runtime.prepareStaging(trial.places.front() / "out", false, staging, error))
        expectLeftAlone(error);
}

/// Makes destinations that must be refused, one in each directory.
void makeExisting(const fs::path& place) {
    fill(place, {{"full/out/", ""}, {"full/out/old", "old"}, {"file/out", ""}});
}

/// Asks for staging without permission to replace what is there.
Answer refuse(const Trial& trial, const fs::path& destination) {
    fs::path staging;
    std::string error = earlierText;
    const bool prepared = trial.runtime.prepareStaging(destination, false, staging, error);
    return {prepared, error};
}

void refusesAnExistingDestination(const Trial& trial) {
    makeExisting(trial.places.front());
    for (const char* kind : {"full", "file"}) {
        expect(!refuse(trial, trial.places.front() / kind / "out").succeeded,
               std::string("false for an existing destination (") + kind + ")", "true");
    }
}

void leavesNothingWhenItRefuses(const Trial& trial) {
    const fs::path& place = trial.places.front();
    makeExisting(place);
    fs::create_directories(place / "empty/out");
    for (const char* kind : {"full", "empty", "file"}) {
        const Tree before = readTree(place / kind);
        const Answer answer = refuse(trial, place / kind / "out");
        expect(answer.succeeded || readTree(place / kind) == before, "everything as it was",
               namesIn(place / kind) + " where the destination is");
    }
}

/// Nothing is lost with an empty directory, so both answers are right.
void replacesAnEmptyDirectoryIfAccepted(const Trial& trial) {
    const fs::path destination = trial.places.front() / "out";
    fs::create_directory(destination);
    fs::path staging;
    std::string error;
    if (!trial.runtime.prepareStaging(destination, false, staging, error)) return;
    fill(staging, oneFile());
    commitSuccessfully(trial, staging, destination);
    expectTree(oneFile(), destination);
}

void replacesErrorWhenItRefuses(const Trial& trial) {
    makeExisting(trial.places.front());
    const Answer answer = refuse(trial, trial.places.front() / "full/out");
    if (!answer.succeeded) expectReplaced(answer.error);
}

struct stat statusOf(const fs::path& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) throw std::system_error(errno, std::generic_category());
    return status;
}

bool isClosedToOthers(const fs::path& directory) {
    const struct stat status = statusOf(directory);
    return status.st_uid == geteuid() && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

/// Tells whether no other user can enter `directory` from `parent`. Both paths are without symbolic
/// links.
bool isShutOffFrom(const fs::path& parent, fs::path directory) {
    for (; directory != parent && directory.has_relative_path();
         directory = directory.parent_path())
        if (isClosedToOthers(directory)) return true;
    return false;
}

void letsNobodyElseIn(const Trial& trial) {
    for (const auto& [name, more] :
         {std::pair{"open", fs::perms::none}, {"sticky", fs::perms::sticky_bit}}) {
        const fs::path parent = fs::canonical(trial.places.front()) / name;
        fs::create_directory(parent);
        fs::permissions(parent, fs::perms::all | more);
        const fs::path staging = prepare(trial, parent / "out");
        const fs::path directory = fs::canonical(staging);
        expect(isShutOffFrom(parent, directory), "a directory that nobody else can enter",
               inQuotes(directory.native()) + ", which others can");
        fill(staging, oneFile());
        commitSuccessfully(trial, staging, parent / "out");
        expectTree(oneFile(), parent / "out");
    }
}

void staysOnTheFileSystem(const Trial& trial) {
    for (const fs::path& place : trial.places) {
        const fs::path staging = prepare(trial, place / "out");
        expect(statusOf(staging).st_dev == statusOf(place).st_dev,
               "a directory on the file system of " + inQuotes(place.native()),
               inQuotes(staging.native()) + ", from where every file must be copied");
    }
}

void leavesTheDestinationUntilCommit(const Trial& trial) {
    const fs::path destination = trial.places.front() / "out";
    const Tree oldTree = {{"old", "old"}};
    fill(destination, oldTree);
    trial.runtime.removeTree(prepare(trial, destination, true));
    expect(readTree(destination) == oldTree, "the old tree after an extraction that failed",
           readTree(destination).empty() ? "nothing" : "another tree");
}

void removesTheTree(const Trial& trial) {
    for (const fs::path& place : trial.places) {
        const fs::path staging = prepare(trial, place / "out");
        fill(staging, sampleTree());
        // A path through a descriptor of the runtime is invalid once the runtime has closed that.
        const fs::path directory = fs::canonical(staging);
        trial.runtime.removeTree(staging);
        expect(!fs::exists(directory), "nothing at " + inQuotes(directory.native()),
               "a directory with " + std::to_string(readTree(directory).size()) + " entries");
    }
}

void removesNothingElse(const Trial& trial) {
    const fs::path& place = trial.places.front();
    fill(place, neighbours());
    const fs::path staging = prepare(trial, place / "out");
    fill(staging, sampleTree());
    trial.runtime.removeTree(staging);
    // Whether the staging directory itself is removed is a separate requirement.
    const Tree after = readTree(place);
    for (const auto& [name, content] : neighbours()) {
        const auto found = after.find(name);
        const bool isThere = found != after.end();
        expect(isThere && found->second == content, inQuotes(name) + " as it was",
               isThere ? "other content" : "nothing there");
    }
}

/// An extraction makes no links, but other programs of the user may have made one meanwhile.
void followsNoLink(const Trial& trial) {
    const fs::path& place = trial.places.front();
    fill(place, {{"inner/", ""}});
    const fs::path staging = prepare(trial, place / "inner/out");
    linkElsewhere(staging, place / "elsewhere");
    trial.runtime.removeTree(staging);
    expectElsewhere(place / "elsewhere");
}

void removesWhatIsGone(const Trial& trial) {
    const fs::path staging = prepare(trial, trial.places.front() / "out");
    makeVanish(staging);
    trial.runtime.removeTree(staging);
}

constexpr Weight requirement = Weight::requirement;
constexpr const char* preparing = "prepareExtractionStaging";
constexpr const char* removing = "removeExtractionTree";

constexpr std::array<Requirement, 16> requirements = {{
    {requirement, preparing, "gives an empty directory", givesAnEmptyDirectory},
    {requirement, preparing, "gives another one when an earlier one was left behind",
     givesAnotherDirectory},
    {requirement, preparing, "takes a destination below the current directory",
     takesARelativeDestination},
    {requirement, preparing, "gives a path that means the same in its normal form",
     keepsItsMeaningInNormalForm},
    {requirement, preparing, "leaves the error text alone when it succeeds", leavesErrorAlone},
    {requirement, preparing, "refuses an existing destination that may not be replaced",
     refusesAnExistingDestination},
    {requirement, preparing, "accepts an existing empty directory only if it can be replaced",
     replacesAnEmptyDirectoryIfAccepted},
    {requirement, preparing, "leaves nothing behind when it refuses", leavesNothingWhenItRefuses},
    {requirement, preparing, "replaces the error text when it refuses", replacesErrorWhenItRefuses},
    {requirement, preparing, "lets nobody else in where everybody may write", letsNobodyElseIn},
    {Weight::advice, preparing, "stays on the destination's file system", staysOnTheFileSystem},
    {Weight::advice, preparing, "leaves an existing destination as it is until the commit",
     leavesTheDestinationUntilCommit},
    {requirement, removing, "removes the whole tree", removesTheTree},
    {requirement, removing, "removes nothing else", removesNothingElse},
    {requirement, removing, "follows no link", followsNoLink},
    {requirement, removing, "returns when there is nothing to remove", removesWhatIsGone},
}};

}  // namespace

std::span<const Requirement> stagingRequirements() {
    return requirements;
}

}  // namespace vesk::hostcheck
