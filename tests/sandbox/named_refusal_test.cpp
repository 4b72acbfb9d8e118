// SPDX-License-Identifier: MIT
// Destinations that the command line refuses to unpack to, in every spelling: the working
// directory, a directory above it, and one that contains the archive. On a command line these are
// mistakes, but a program that calls the module may intend them.
#include <gtest/gtest.h>

#include "tests/sandbox/plan_by_hand.h"
#include "tests/sandbox/program_copy.h"
#include "tests/sandbox/random_archive.h"
#include "tests/sandbox/sandbox.h"
#include "tests/sandbox/snapshot.h"
#include "tests/support/memory_dir.h"

namespace vesk::testing {

namespace {

/// The archive is at "holder/deep/archive".
struct Row {
    const char* name;
    const char* destination;
    bool isRefused;
};

std::ostream& operator<<(std::ostream& out, const Row& row) {
    return out << row.name;
}

const Row rows[] = {
    {"WorkingDirectory", ".", true},
    {"WorkingDirectoryBySlash", "./", true},
    {"WorkingDirectoryByItsName", "../root", true},
    {"WorkingDirectoryByALink", "here", true},
    {"WorkingDirectoryByWayOfAnother", "other/..", true},
    {"AboveTheWorkingDirectory", "..", true},
    {"FarAboveTheWorkingDirectory", "other/../../..", true},
    {"AboveTheWorkingDirectoryByALink", "above", true},
    {"HolderOfTheArchive", "holder/deep", true},
    {"AboveTheHolderOfTheArchive", "holder", true},
    {"HolderOfTheArchiveByALink", "to holder", true},
    {"AnotherDirectory", "other", false},
    {"AnotherDirectoryByALink", "to other", false},
    {"NewDirectory", "new", false},
    {"NewDirectoryBesideTheArchive", "holder/deep/new", false},
};

std::vector<PlannedThing> things() {
    PlannedThing archive = file("holder/deep/archive");
    archive.content = plainArchive(false).bytes;
    return {file("old"),
            directory("other"),
            file("other/old"),
            directory("holder"),
            directory("holder/deep"),
            archive,
            link("here", "."),
            link("above", "../.."),
            link("to holder", "holder"),
            link("to other", "other")};
}

class NamedRefusal : public ::testing::TestWithParam<Row> {
protected:
    void SetUp() override {
        std::filesystem::permissions(directory_->path(), std::filesystem::perms{0755});
    }

    void runRow(const ActingUser& user) {
        SCOPED_TRACE(user.uid);
        const std::string top = *directory_ / "sandbox";
        const Sandbox sandbox(top, planByHand(things(), user));
        const Snapshot before = takeSnapshot(top);
        const ProgramEnd end = program_.run({"unpack", "--overwrite", "--quiet", "--",
                                             "holder/deep/archive", GetParam().destination},
                                            user, 022);
        EXPECT_EQ(end.status, GetParam().isRefused ? 2 : 0);
        EXPECT_EQ(end.error.starts_with("vesk-archive: "), GetParam().isRefused) << end.error;
        EXPECT_EQ(differences(before, takeSnapshot(top)).empty(), GetParam().isRefused);
    }

    const std::unique_ptr<TempDir> directory_ = makeMemoryDir();
    const ProgramCopy program_;
};

TEST_P(NamedRefusal, HasStatus2AndChangesNothing) {
    runRow(presentUser());
    if (presentUser().isRoot()) runRow(ordinaryUser);
}

INSTANTIATE_TEST_SUITE_P(EveryRow, NamedRefusal, ::testing::ValuesIn(rows),
                         [](const auto& row) { return row.param.name; });

}  // namespace

}  // namespace vesk::testing
