// SPDX-License-Identifier: MIT
// Every file operation of the module fails once. Each error ends in the message of its step; what
// the standard library retries ends in the right bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/faults/archive_calls.h"
#include "tests/faults/file_faults.h"
#include "tests/faults/file_steps.h"
#include "tests/faults/raise_count.h"
#include "tests/support/memory_dir.h"
#include "tests/support/open_files.h"

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

/// The errors that each call returns in turn; 0 means fewer bytes than requested.
constexpr std::array errors = {EIO, ENOSPC, EACCES, EMFILE, EINTR, 0};

const Tree unpacked = {
    {"directory/", ""}, {"deep/small", "text"}, {"large", std::string(3000, 'l')}};

std::string packed() {
    return tarEntry("directory/", "", '5') + tarEntry("deep/small", "text") +
           tarEntry("large", std::string(3000, 'l')) + tarEnd();
}

/// Tells whether a call moves bytes, and so may move fewer than requested.
bool movesBytes(const std::string& call) {
    return call.starts_with("read ") || call.starts_with("write") || call.starts_with("fread ") ||
           call.starts_with("fwrite ");
}

class FileFaults : public ::testing::TestWithParam<std::tuple<Scenario, bool>> {
protected:
    FileFaults() {
        writeFile(root_ / "linked", std::string(1500, 'f'));
        fs::create_directories(root_ / "source/sub");
        fs::create_symlink(root_ / "linked", root_ / "source/sub/link");
        writeFile(root_ / "packed", gzip() ? memberOf(packed()) : packed());
        prepare();
    }

    const Scenario& scenario() const { return std::get<0>(GetParam()); }
    bool gzip() const { return std::get<1>(GetParam()); }
    fs::path to() const { return root_ / scenario().to; }

    bool hasOldArchive() const { return std::string_view(scenario().to) == "archive"; }

    void prepare() const {
        fs::remove_all(root_ / "new");
        fs::remove_all(to());
        if (hasOldArchive()) writeFile(to(), "old");
    }

    FileReport call(FileFault fault) const;
    std::string ending() const;
    void expectDestinationUntouched(const std::string& call) const;
    void inject(std::size_t number, const std::string& call, const char* message);
    const Step* stepOf(const std::string& call, int occurrence) const;

    const std::unique_ptr<TempDir> directory_ = makeMemoryDir();
    const TempDir& root_ = *directory_;
    std::string archive_;  ///< as it is without faults, when one is made
    std::size_t faults_ = 0;
};

const ArchiveCall& archiveCall(bool makes, bool gzip) {
    return *std::find_if(std::begin(archiveCalls), std::end(archiveCalls), [&](const auto& call) {
        return call.makes == makes && call.gzip == gzip && call.replaces == makes;
    });
}

FileReport FileFaults::call(FileFault fault) const {
    const ArchiveCall& function = archiveCall(scenario().makes, gzip());
    const fs::path from = root_ / scenario().from;
    raiseCount = 0;
    armFileFaults(root_.path(), fault);
    function(from, to());
    return disarmFileFaults();
}

/// Returns "done" when the destination is as expected, otherwise the message that was raised, with
/// the test's directory as ROOT.
std::string FileFaults::ending() const {
    const auto error = standin::takePendingError();
    if (raiseCount != (error ? 1 : 0)) return "raised " + std::to_string(raiseCount) + " times";
    if (!error) {
        if (!scenario().makes) return readTree(to()) == unpacked ? "done" : "incomplete tree";
        return readFile(to()) == archive_ ? "done" : "wrong archive";
    }
    std::string message = error->message;
    const std::size_t root = message.find(root_.path().native());
    if (root == std::string::npos) return message;
    return message.replace(root, root_.path().native().size(), "ROOT");
}

/// After a failure at `call`: an old archive is unchanged until it has been opened, and an
/// extraction leaves nothing.
void FileFaults::expectDestinationUntouched(const std::string& call) const {
    if (!scenario().makes) {
        EXPECT_FALSE(fs::exists(to()));
        for (const auto& entry : fs::directory_iterator(root_.path())) {
            EXPECT_EQ(entry.path().native().find(".vesk-"), std::string::npos) << entry.path();
        }
    } else if (hasOldArchive() && !call.ends_with(" archive")) {
        EXPECT_EQ(readFile(to()), "old");
    }
}

void FileFaults::inject(std::size_t number, const std::string& call, const char* message) {
    for (const int error : errors) {
        if (error == 0 && !movesBytes(call)) continue;
        const bool retried = movesBytes(call) && isRetried(call, error);
        const std::string expected = retried || message == nullptr ? "done" : message;
        SCOPED_TRACE(call + ", " + (error == 0 ? "half the bytes" : std::strerror(error)));
        prepare();
        const std::ptrdiff_t descriptors = openFileCount();
        const FileReport report = this->call({number, error});
        EXPECT_TRUE(report.fired);
        EXPECT_EQ(report.calls[number - 1], call);
        EXPECT_EQ(ending(), expected);
        EXPECT_EQ(openFileCount(), descriptors);
        if (expected != "done") expectDestinationUntouched(call);
        ++faults_;
    }
}

/// Returns the step of the given occurrence, counted from 0, of `call`, or null when there is none.
const Step* FileFaults::stepOf(const std::string& call, int occurrence) const {
    const Step* found = nullptr;
    for (const Step& step : scenario().steps) {
        if (call != step.call) continue;
        found = &step;
        if (occurrence-- == 0) break;
    }
    return found;
}

TEST_P(FileFaults, EveryErrorEndsInTheMessageOfItsStep) {
    const std::vector<std::string> calls = call({0, 0}).calls;
    ASSERT_FALSE(standin::takePendingError());
    if (scenario().makes) archive_ = readFile(to());

    std::map<std::string, int> occurrences;
    std::set<const Step*> reached;
    for (std::size_t i = 0; i < calls.size(); ++i) {
        const Step* const step = stepOf(calls[i], occurrences[calls[i]]++);
        ASSERT_NE(step, nullptr) << calls[i];
        reached.insert(step);
        inject(i + 1, calls[i], step->message);
    }
    EXPECT_EQ(reached.size(), scenario().steps.size());
    std::printf("%zu file calls, %zu faults\n", calls.size(), faults_);
}

INSTANTIATE_TEST_SUITE_P(EveryFunction, FileFaults,
                         ::testing::Combine(::testing::ValuesIn(scenarios()), ::testing::Bool()),
                         [](const auto& row) {
                             return std::string(std::get<1>(row.param) ? "Tgz" : "Tar") +
                                    std::get<0>(row.param).name;
                         });

}  // namespace

}  // namespace vesk::testing
