// SPDX-License-Identifier: MIT
// The live line's text for every stage, at every width.
#include "commandline/progress_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace std::chrono_literals;
using vesk::commandline::Moment;
using vesk::commandline::progressText;
using vesk::commandline::Stage;

constexpr std::chrono::steady_clock::time_point start{1000h};

/// The text a quarter of an hour after the work began, and this long after the stage began.
std::string textOf(Stage stage, std::uint64_t done, std::uint64_t total,
                   std::chrono::steady_clock::duration inStage, std::size_t columns = 100) {
    const auto now = start + 15min;
    return progressText({stage, done, total, now - inStage}, start, now, columns);
}

TEST(ProgressText, NamesTheStageAndWhatIsCountedInIt) {
    EXPECT_EQ(textOf(Stage::walking, 1, 0, 3s), "walking: 1 name, 15 min so far");
    EXPECT_EQ(textOf(Stage::walking, 17, 0, 3s), "walking: 17 names, 15 min so far");
    EXPECT_EQ(textOf(Stage::readingFiles, 0, 0, 3s), "reading: 0 entries, 15 min so far");
    EXPECT_EQ(textOf(Stage::writing, 0, 0, 3s), "writing, 15 min so far");
    EXPECT_EQ(textOf(Stage::readingArchive, 0, 0, 3s), "reading, 15 min so far");
    EXPECT_EQ(textOf(Stage::moving, 0, 0, 3s), "moving into place, 15 min so far");
    EXPECT_EQ(textOf(Stage::decoding, 500'000'000, 2'000'000'000, 30s),
              "decoding: 500 of 2000 MB [#######.......................] 25 %, 90 s left");
    EXPECT_EQ(textOf(Stage::unpacking, 3, 4, 30s),
              "unpacking: 3 of 4 entries [######################........] 75 %, 10 s left");
}

TEST(ProgressText, ShowsTheTimeLeftInTheStageOnceItCanBeEstimated) {
    const auto left = [](std::uint64_t done, std::chrono::steady_clock::duration inStage) {
        const std::string text = textOf(Stage::readingFiles, done, 1000, inStage);
        return text.substr(text.find(']') + 2);
    };
    EXPECT_EQ(left(0, 60s), "0 %");
    EXPECT_EQ(left(500, 999ms), "50 %");
    EXPECT_EQ(left(500, 1s), "50 %, 1 s left");
    EXPECT_EQ(left(500, 119s), "50 %, 119 s left");
    EXPECT_EQ(left(500, 120s), "50 %, 2 min left");
    EXPECT_EQ(left(1, 10s), "0 %, 166 min left");
    EXPECT_EQ(left(1000, 10s), "100 %, 0 s left");
}

TEST(ProgressText, IgnoresATotalThatIsTooSmall) {
    EXPECT_EQ(textOf(Stage::unpacking, 5, 4, 3s), "unpacking: 5 entries, 15 min so far");
}

TEST(ProgressText, LeavesOutWhatDoesNotFit) {
    EXPECT_EQ(textOf(Stage::readingFiles, 3, 4, 30s, 53),
              "reading: 3 of 4 entries [#######...] 75 %, 10 s left");
    EXPECT_EQ(textOf(Stage::readingFiles, 3, 4, 30s, 52),
              "reading: 3 of 4 entries, 75 %, 10 s left");
    EXPECT_EQ(textOf(Stage::readingFiles, 3, 4, 30s, 40), "reading: 75 %, 10 s left");
    EXPECT_EQ(textOf(Stage::readingFiles, 3, 4, 30s, 24), "reading: 75 %");
    EXPECT_EQ(textOf(Stage::readingFiles, 3, 4, 30s, 13), "reading");
    EXPECT_EQ(textOf(Stage::readingFiles, 3, 4, 30s, 7), "readin");
    EXPECT_EQ(textOf(Stage::walking, 123, 0, 30s, 27), "walking, 15 min so far");
    EXPECT_EQ(textOf(Stage::walking, 123, 0, 30s, 12), "walking");
}

TEST(ProgressText, IsAlwaysShorterThanTheTerminalIsWide) {
    for (const Stage stage :
         {Stage::walking, Stage::readingFiles, Stage::writing, Stage::decoding, Stage::moving}) {
        for (std::size_t columns = 1; columns <= 200; ++columns) {
            for (const std::uint64_t total : {0ULL, 1234567ULL, 4294967295ULL}) {
                EXPECT_LT(textOf(stage, total / 3, total, 100h, columns).size(), columns);
            }
        }
    }
}

}  // namespace
