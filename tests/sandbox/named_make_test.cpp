// SPDX-License-Identifier: MIT
// Making archives in named sandboxes: one for each way in which the archive's path can coincide
// with the source or with something that must stay.
#include <gtest/gtest.h>

#include "tests/sandbox/make_runner.h"
#include "tests/sandbox/plan_by_hand.h"
#include "tests/sandbox/sandbox.h"

namespace vesk::testing {

namespace {

struct Row {
    const char* name;
    std::vector<PlannedThing> things;  // from the planned root, in which the working directory is
    const char* source;
    const char* archive;
    bool overwrite = true;
};

std::ostream& operator<<(std::ostream& out, const Row& row) {
    return out << row.name;
}

const Row rows[] = {
    {"OwnSource", {file("src")}, "src", "src"},
    {"OwnSourceByALink", {file("src"), link("lnk", "src")}, "src", "lnk"},
    {"OwnSourceWithoutOverwriting", {file("src")}, "src", "src", false},
    {"InItsSource", {directory("src"), file("src/old")}, "src", "src/old"},
    {"InItsSourceByALink",
     {directory("src"), file("src/old"), link("lnk", "src")},
     "src",
     "lnk/old"},
    {"NewInItsSource", {directory("src"), file("src/old")}, "src", "src/new"},
    {"NewInMissingParentsInItsSource", {directory("src"), file("src/old")}, "src", "src/made/new"},
    {"UpFromALink",
     {directory("else"), directory("else/where"), link("lnk", "else/where"), file("else/old"),
      file("src")},
     "src",
     "lnk/../old"},
    {"FileByALink", {file("src"), file("pointed"), link("lnk", "pointed")}, "src", "lnk"},
    {"DanglingLink", {file("src"), link("lnk", "nowhere")}, "src", "lnk"},
    {"LoopingLink", {file("src"), link("lnk", "lnk")}, "src", "lnk"},
    {"Directory", {file("src"), directory("dir")}, "src", "dir"},
    {"EmptyDirectoryWithoutOverwriting", {file("src"), directory("dir")}, "src", "dir", false},
    {"Fifo", {file("src"), fifo("fifo")}, "src", "fifo"},
    {"FifoAsSource", {fifo("src"), file("old")}, "src", "old"},
    {"MissingSource", {file("old")}, "src", "old"},
    {"DanglingLinkInTheSource",
     {directory("src"), link("src/lnk", "nowhere"), file("old")},
     "src",
     "old"},
    {"UnreadableFileInTheSource",
     {directory("src"), closedFile("src/closed"), file("old")},
     "src",
     "old"},
};

class NamedMakeSandbox : public ::testing::TestWithParam<Row> {
protected:
    void runRow(const ActingUser& user) {
        for (const Container container : {Container::tar, Container::tgz}) {
            const Sandbox sandbox(runner_.top(), planByHand(GetParam().things, user));
            const MakeCase makeCase{GetParam().source, GetParam().archive, container,
                                    GetParam().overwrite};
            runner_.run(makeCase, user, "user " + std::to_string(user.uid));
        }
    }

    MakeRunner runner_;
};

TEST_P(NamedMakeSandbox, IsMadeOrRefusedAsPredicted) {
    runRow(presentUser());
    if (presentUser().isRoot()) runRow(ordinaryUser);
    EXPECT_TRUE(runner_.findings().empty()) << runner_.findings().text();
}

INSTANTIATE_TEST_SUITE_P(EveryRow, NamedMakeSandbox, ::testing::ValuesIn(rows),
                         [](const auto& row) { return row.param.name; });

}  // namespace

}  // namespace vesk::testing
