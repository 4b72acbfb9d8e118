// SPDX-License-Identifier: MIT
// Tests of staged extraction alone: the error text, the calls of the runtime, and what is left
// behind.
#include "tar/staged_extraction.h"

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

#include "tests/support/recording_host.h"
#include "tests/support/tar_bytes.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tree.h"

namespace {

using namespace vesk::io::archives;
using namespace vesk::testing;

/// The error text is not empty before: a success must keep it, a failure must replace it.
class StagedExtraction : public ::testing::Test {
protected:
    bool unpack(const std::string& archive, const char* destinationPath, bool overwrite = false) {
        const std::vector<std::uint8_t> bytes(archive.begin(), archive.end());
        return tarUnpackArchiveBytes(bytes, destinationPath, overwrite, errorText);
    }

    const TempDir dir;
    const std::string destination = (dir / "out").native();
    RecordingHost host;
    std::string errorText = "word";
};

TEST_F(StagedExtraction, CommitsWhatItExtractedAndLeavesTheErrorTextAlone) {
    EXPECT_TRUE(unpack(tarEntry("a", "x") + tarEnd(), destination.c_str()));
    EXPECT_EQ(errorText, "word");
    const Calls calls = {
        "Vesk_runtimeFsPath(" + destination + ")",
        "prepareExtractionStaging(" + destination + ", overwrite=0, staging=, error=word) = 1",
        "Vesk_runtimeFsPath(a)",
        "Vesk_runtimeFsPath(a)",
        "commitExtractionStaging(STAGING, " + destination + ", error=word) = 1",
    };
    EXPECT_EQ(host.calls, calls);
    EXPECT_EQ(readTree(dir.path()), (Tree{{"out/a", "x"}}));
}

TEST_F(StagedExtraction, PassesOverwriteAndTheErrorTextOnUnchanged) {
    writeFile(destination + "/old", "old");
    EXPECT_TRUE(unpack(tarEnd(), destination.c_str(), true));
    const Calls calls = {
        "Vesk_runtimeFsPath(" + destination + ")",
        "prepareExtractionStaging(" + destination + ", overwrite=1, staging=, error=word) = 1",
        "commitExtractionStaging(STAGING, " + destination + ", error=word) = 1",
    };
    EXPECT_EQ(host.calls, calls);
    EXPECT_EQ(readTree(dir.path()), (Tree{{"out/", ""}}));
}

TEST_F(StagedExtraction, RequiresADestinationBeforeTheRuntimeIsAskedForAnything) {
    const std::string archives[] = {tarEntry("a", "x") + tarEnd(), "", std::string(600, '!')};
    for (const std::string& archive : archives) {
        for (const char* const destinationPath : {static_cast<const char*>(nullptr), ""}) {
            errorText = "word";
            EXPECT_FALSE(unpack(archive, destinationPath));
            EXPECT_EQ(errorText, "Destination path is required");
        }
    }
    EXPECT_EQ(host.calls, Calls());
    EXPECT_EQ(readTree(dir.path()), Tree());
}

TEST_F(StagedExtraction, RemovesNothingWhenStagingWasNotPrepared) {
    for (const std::string message : {"refused", ""}) {
        host.calls.clear();
        host.prepareFailure = message;
        errorText = "word";
        EXPECT_FALSE(unpack("an invalid archive", destination.c_str()));
        EXPECT_EQ(errorText, message);
        const Calls calls = {
            "Vesk_runtimeFsPath(" + destination + ")",
            "prepareExtractionStaging(" + destination + ", overwrite=0, staging=, error=word) = 0",
        };
        EXPECT_EQ(host.calls, calls);
    }
}

TEST_F(StagedExtraction, RemovesTheStagingTreeWhenTheArchiveFailsHalfWay) {
    EXPECT_FALSE(
        unpack(tarEntry("a", "x") + tarEntry("b", "", '2') + tarEnd(), destination.c_str()));
    EXPECT_EQ(errorText, "Unsupported TAR entry type");
    const Calls calls = {
        "Vesk_runtimeFsPath(" + destination + ")",
        "prepareExtractionStaging(" + destination + ", overwrite=0, staging=, error=word) = 1",
        "Vesk_runtimeFsPath(a)",
        "Vesk_runtimeFsPath(a)",
        "Vesk_runtimeFsPath(b)",
        "Vesk_runtimeFsPath(b)",
        "removeExtractionTree(STAGING)",
    };
    EXPECT_EQ(host.calls, calls);
    EXPECT_EQ(readTree(dir.path()), Tree());
}

TEST_F(StagedExtraction, RemovesTheStagingTreeWhenTheCommitFails) {
    for (const std::string message : {"not committed", ""}) {
        host.calls.clear();
        host.commitFailure = message;
        errorText = "word";
        EXPECT_FALSE(unpack(tarEnd(), destination.c_str()));
        EXPECT_EQ(errorText, message);
        const Calls calls = {
            "Vesk_runtimeFsPath(" + destination + ")",
            "prepareExtractionStaging(" + destination + ", overwrite=0, staging=, error=word) = 1",
            "commitExtractionStaging(STAGING, " + destination + ", error=word) = 0",
            "removeExtractionTree(STAGING)",
        };
        EXPECT_EQ(host.calls, calls);
        EXPECT_EQ(readTree(dir.path()), Tree());
    }
}

// When the runtime is asked to commit, the whole archive is extracted and nothing is at the
// destination yet.
TEST_F(StagedExtraction, CommitsOnlyTheWholeTree) {
    Tree staged;
    host.beforeCommit = [&](const std::string& staging) {
        staged = readTree(staging);
        EXPECT_FALSE(std::filesystem::exists(destination));
    };
    EXPECT_TRUE(unpack(tarEntry("d/a", "x") + tarEntry("b", "y") + tarEnd(), destination.c_str()));
    EXPECT_EQ(staged, (Tree{{"b", "y"}, {"d/a", "x"}}));
}

TEST_F(StagedExtraction, LeavesTheStagingTreeWhenAnExceptionPasses) {
    host.beforeRuntimeFsPath = [](const char* text) {
        if (std::string(text) == "b") throw std::bad_alloc();
    };
    const std::string archive = tarEntry("a", "x") + tarEntry("b", "y") + tarEnd();
    EXPECT_THROW(unpack(archive, destination.c_str()), std::bad_alloc);
    EXPECT_EQ(errorText, "word");
    EXPECT_EQ(host.calls.back(), "Vesk_runtimeFsPath(b)");
    EXPECT_EQ(readTree(host.staging), (Tree{{"a", "x"}}));
}

}  // namespace
