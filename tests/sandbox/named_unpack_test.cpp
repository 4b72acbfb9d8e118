// SPDX-License-Identifier: MIT
// Unpacking in named sandboxes: those that random tests have found, and one for each rule about
// what may be replaced.
#include <gtest/gtest.h>

#include <climits>

#include "tests/sandbox/plan_by_hand.h"
#include "tests/sandbox/sandbox.h"
#include "tests/sandbox/unpack_runner.h"

namespace vesk::testing {

namespace {

struct Row {
    const char* name;
    std::vector<PlannedThing> things;  // from the planned root, in which the working directory is
    const char* destination;
    bool overwrite;
    bool isCut = false;
};

std::ostream& operator<<(std::ostream& out, const Row& row) {
    return out << row.name;
}

/// The parent of the target of `lnk` is not the directory that contains `lnk`.
std::vector<PlannedThing> linkElsewhere() {
    return {directory("else"), directory("else/where"), directory("else/dst"), file("else/dst/old"),
            link("lnk", "else/where")};
}

/// A file and a chain of `count` links that lead to it by `way`.
std::vector<PlannedThing> linkChain(int count, const std::string& way = "") {
    std::vector<PlannedThing> things = {file("0"), link("here", ".")};
    for (int number = 1; number <= count; ++number) {
        const std::string target = way + std::to_string(number - 1);
        things.push_back(
            {number == count ? "dst" : std::to_string(number), S_IFLNK, 0777, caller, target});
    }
    return things;
}

const Row rows[] = {
    {"UpFromALink", linkElsewhere(), "lnk/../dst", true},
    {"UpFromALinkWithADamagedArchive", linkElsewhere(), "lnk/../dst", true, true},
    {"UpFromALinkToANewName", linkElsewhere(), "lnk/../new", false},
    {"UpFromALinkToANewNameWithADamagedArchive", linkElsewhere(), "lnk/../new", false, true},
    {"UpFromALinkToMissingParents", linkElsewhere(), "lnk/../made/new", false},
    {"UpFromALinkWithoutOverwriting", linkElsewhere(), "lnk/../dst", false},
    {"UpByALinksTarget",
     {directory("d"), directory("d/e"), link("d/up", "e/../.."), directory("dst"), file("dst/old")},
     "d/up/dst",
     true},
    {"MissingParentsWithADamagedArchive", {}, "made/too/dst", false, true},
    {"MissingParentsOfANameThatIsTooLong", {}, nullptr, false},
    {"Fifo", {fifo("dst")}, "dst", true},
    {"LinkToAFifo", {fifo("fifo"), link("dst", "fifo")}, "dst", true},
    {"DanglingLink", {link("dst", "nowhere")}, "dst", true},
    {"DanglingLinkBeforeASlash", {link("dst", "nowhere")}, "dst/", true},
    {"LoopingLink", {link("dst", "dst")}, "dst", true},
    {"DanglingLinkAsParent", {link("lnk", "nowhere")}, "lnk/dst", false},
    {"EmptyDirectoryWithoutOverwriting", {directory("dst")}, "dst", false},
    {"EmptyDirectoryWithADamagedArchive", {directory("dst")}, "dst", false, true},
    {"ClosedDirectory", {directory("dst", 0700), file("dst/old")}, "dst", true},
    {"DirectoryOpenToAll", {directory("dst", 0777), file("dst/old")}, "dst", true},
    {"DirectoryOfAnother", {directory("dst", 0755, stranger)}, "dst", true},
    {"WorkingDirectory", {file("old")}, ".", true},
    {"AboveTheWorkingDirectory", {file("old")}, "..", true},
    {"FileByALink", {file("pointed"), link("dst", "pointed")}, "dst", true},
    {"ClosedFileByALink", {closedFile("pointed"), link("dst", "pointed")}, "dst", true},
    {"AsManyLinksAsTheSystemFollows", linkChain(40), "dst", true},
    {"MoreLinksThanTheSystemFollows", linkChain(41), "dst", true},
    {"MoreLinksThanTheSystemFollowsWithThoseOnTheWay", linkChain(21, "here/"), "dst", true},
    {"LinkOfAnotherInAStickyDirectory",
     {directory("shared", 01777, {0, 0}), directory("kept"), file("kept/old"),
      link("shared/dst", "../kept", stranger)},
     "shared/dst",
     true},
    {"LinkOfAnotherInHisStickyDirectory",
     {directory("shared", 01777, stranger), directory("kept"), file("kept/old"),
      link("shared/dst", "../kept", stranger)},
     "shared/dst",
     true},
    {"OwnLinkInAStickyDirectoryOfAnother",
     {directory("shared", 01777, stranger), directory("kept"), file("kept/old"),
      link("shared/dst", "../kept")},
     "shared/dst",
     true},
    {"NeighbourWithAMarkInItsName",
     {directory("dst"), file("dst/old"), directory(".dst.vesk-unpacking-replacing-abcdef"),
      file(".dst.vesk-unpacking-replacing-abcdef/kept")},
     "dst",
     true},
};

class NamedUnpackSandbox : public ::testing::TestWithParam<Row> {
protected:
    void runRow(const ActingUser& user) {
        UnpackCase unpackCase;
        unpackCase.archive = plainArchive(GetParam().isCut);
        unpackCase.destination = GetParam().destination != nullptr
                                     ? GetParam().destination
                                     : "made/" + std::string(NAME_MAX + 1, 'x');
        unpackCase.overwrite = GetParam().overwrite;
        const std::string archive = runner_.archivePath();
        writeFile(archive, unpackCase.archive.bytes);
        const Sandbox sandbox(runner_.top(), planByHand(GetParam().things, user));
        runner_.run(unpackCase, archive, user, "user " + std::to_string(user.uid));
    }

    UnpackRunner runner_;
};

TEST_P(NamedUnpackSandbox, IsReplacedOrRefusedAsPredicted) {
    runRow(presentUser());
    if (presentUser().isRoot()) runRow(ordinaryUser);
    EXPECT_TRUE(runner_.findings().empty()) << runner_.findings().text();
}

INSTANTIATE_TEST_SUITE_P(EveryRow, NamedUnpackSandbox, ::testing::ValuesIn(rows),
                         [](const auto& row) { return row.param.name; });

}  // namespace

}  // namespace vesk::testing
