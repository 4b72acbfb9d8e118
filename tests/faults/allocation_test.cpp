// SPDX-License-Identifier: MIT
// Every allocation fails once: the call ends in std::bad_alloc or in one documented message, with
// everything released and the destination unchanged.
//
// The standard libraries have two exceptions. They are counted separately, and nothing else may end
// like them.
//
// libstdc++ 12: _Dir::advance(bool, std::error_code&) and _Dir::open_subdir(bool, bool,
// std::error_code&) of std::filesystem are noexcept although they build paths. The constructor of
// recursive_directory_iterator and its increment(std::error_code&) use them: when memory runs out
// there, the library ends the process.
//
// libc++ 14: when memory runs out while the path of a directory's first entry is built, the open
// directory stays open, since the constructor of __dir_stream does not complete.
#include <gtest/gtest.h>

#include <map>
#include <new>
#include <optional>
#include <regex>
#include <set>

#include "tests/faults/allocation_faults.h"
#include "tests/faults/archive_calls.h"
#include "tests/faults/raise_count.h"
#include "tests/support/in_child.h"
#include "tests/support/memory_dir.h"
#include "tests/support/open_files.h"

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

/// The messages that a failed allocation of the module may cause: the standard library reports the
/// failure of a C function, such as fopen, like any other failure.
const std::set<std::string> swallowed = {
    "IOException: Cannot enumerate archive source", "IOException: Cannot read file: FILE",
    "IOException: Cannot create archive", "IOException: Cannot write TAR entry"};

/// The message when the stream for the decoder's output cannot grow.
const std::string unstored = "IOException: Cannot store DEFLATE output";

/// The other consequences of a failed allocation in a standard library.
struct StandardLibrary {
    bool doesWithout;      ///< C streams that get no buffer do without, and the call succeeds
    bool endsWalks;        ///< ends the process when memory runs out in a walk
    bool leavesWalksOpen;  ///< leaves a directory open when memory runs out in a walk
};

#ifdef _LIBCPP_VERSION
const StandardLibrary library = {.doesWithout = true, .endsWalks = false, .leavesWalksOpen = true};
#else
const StandardLibrary library = {.doesWithout = false, .endsWalks = true, .leavesWalksOpen = false};
#endif

/// Every call converts two paths and opens a file, with every standard library.
constexpr std::size_t leastAllocations = 10;

class AllocationFaults : public ::testing::TestWithParam<ArchiveCall> {
protected:
    AllocationFaults() {
        writeSource(root_ / "source");
        writeFile(root_ / splitName(), std::string(5000, 's'));
        writeFile(root_ / "archive.tar", streamToUnpack());
        writeFile(root_ / "archive.tgz", memberOf(streamToUnpack()));
        fs::create_directory(root_ / "work");
        prepare();
        // This call also lets the libraries allocate what they keep.
        GetParam()(from(), to());
        if (auto error = standin::takePendingError()) throw std::runtime_error(error->message);
        complete_ = destination();
        prepare();
        old_ = destination();
    }

    /// Returns the source: a tree for a new archive, a single file for one that replaces another.
    fs::path from() const {
        if (GetParam().makes) return root_ / (GetParam().replaces ? splitName() : "source");
        return root_ / (GetParam().gzip ? "archive.tgz" : "archive.tar");
    }
    fs::path to() const { return root_ / "work/parent/destination"; }

    /// Puts the destination's surroundings into their state before a call.
    void prepare() const {
        fs::remove_all(root_ / "work");
        fs::create_directory(root_ / "work");
        if (!GetParam().replaces) return;
        if (GetParam().makes) {
            writeFile(to(), "the old archive");
        } else {
            writeTree(to(), {{"old", "tree"}, {"directory/older", "still"}});
        }
    }

    /// Returns what is at the destination: one file without a name, a tree, or nothing.
    std::optional<Tree> destination() const {
        if (!fs::exists(to())) return std::nullopt;
        return fs::is_directory(to()) ? readTree(to()) : Tree{{"", readFile(to())}};
    }

    void sweep(FaultReach reach);

private:
    std::size_t countAllocations();
    std::string run(std::size_t number, FaultReach reach) const;
    std::string judge(const std::string& ending, const AllocationReport& report) const;
    std::string judgeMessage(const std::string& ending, CallOwner owner) const;
    std::string judgeRelease(std::ptrdiff_t blocks, std::ptrdiff_t descriptors,
                             const std::string& ending, const AllocationReport& report) const;
    std::string judgeDestination(const std::string& ending) const;
    std::string judgeTermination() const;
    std::string judgeNextCall() const;
    std::string judgeSurroundings() const;

    const std::unique_ptr<TempDir> directory_ = makeMemoryDir();
    const TempDir& root_ = *directory_;
    std::optional<Tree> old_;
    std::optional<Tree> complete_;
};

/// Returns how the call ended: "done", "bad_alloc", or the message that was raised.
std::string endingOf(const ArchiveCall& call, const fs::path& from, const fs::path& to,
                     std::size_t number, FaultReach reach, AllocationReport& report) {
    bool exhausted = false;
    armAllocationFaults(number, reach);
    try {
        call(from, to);
    } catch (const std::bad_alloc&) {
        exhausted = true;
    }
    report = disarmAllocationFaults();
    const auto error = standin::takePendingError();
    if (exhausted) return error ? "defect: bad_alloc and a message" : "bad_alloc";
    if (!error) return raiseCount == 0 ? "done" : "defect: a raise without a message";
    if (raiseCount != 1) return "defect: raised more than once";
    return error->className + ": " + error->message;
}

std::string atTermination() {
    const bool walking = disarmAllocationFaults().walking && library.endsWalks;
    return walking ? "terminated" : "defect: terminated outside a walk";
}

/// Lets the libraries allocate now what they keep after their first use.
void allocateWhatStays() {
    callOwner();
    standin::abandonStaging();
    try {
        throw std::bad_alloc();
    } catch (const std::bad_alloc&) {
        return;
    }
}

/// Runs the call with the given fault. Returns "done", a permitted ending, or a text that begins
/// with "defect".
std::string AllocationFaults::run(std::size_t number, FaultReach reach) const {
    const fs::path source = from();
    const fs::path target = to();
    allocateWhatStays();
    std::string ending(300, ' ');  // has its memory now, so that it does not count as a leak
    AllocationReport report;
    raiseCount = 0;
    const std::ptrdiff_t descriptors = openFileCount();
    const std::size_t live = liveAllocations();

    ending.assign(std::string_view(endingOf(GetParam(), source, target, number, reach, report)));
    // What the exception left open stays open until the stand-in is told.
    standin::abandonStaging();
    const auto leaked = static_cast<std::ptrdiff_t>(liveAllocations() - live);
    return judgeRelease(leaked, openFileCount() - descriptors, ending, report) +
           judge(ending, report);
}

std::string AllocationFaults::judgeRelease(std::ptrdiff_t blocks, std::ptrdiff_t descriptors,
                                           const std::string& ending,
                                           const AllocationReport& report) const {
    if (blocks == 0 && descriptors == 0) return "";
    if (blocks == 1 && descriptors == 1 && report.walking && library.leavesWalksOpen) {
        return "directory left open, ";
    }
    return "defect: " + std::to_string(blocks) + " blocks and " + std::to_string(descriptors) +
           " descriptors left after " + ending + ", ";
}

std::string AllocationFaults::judge(const std::string& ending,
                                    const AllocationReport& report) const {
    if (report.failures == 0) return ending == "done" ? "done" : "defect: no fault but " + ending;
    if (ending.starts_with("defect")) return ending;
    std::string verdict = (report.owner == CallOwner::module ? "module: " : "host: ") +
                          judgeMessage(ending, report.owner) + judgeDestination(ending);
    verdict += judgeNextCall();
    return verdict + judgeSurroundings();
}

std::string AllocationFaults::judgeMessage(const std::string& ending, CallOwner owner) const {
    // On some machines no call stack leads out of the C library: then it may be either of the two.
    const bool mayBeDone = owner != CallOwner::module || library.doesWithout || !GetParam().makes;
    if (ending == "bad_alloc" || (ending == "done" && mayBeDone)) return ending;
    const std::regex file("file: " + root_.path().native() + ".*");
    const std::string text = std::regex_replace(ending, file, "file: FILE");
    const bool known = text == unstored || (owner != CallOwner::host && swallowed.contains(text));
    return known ? text : "defect: " + text;
}

/// Checks that the destination is unchanged. There is one exception: a file stream allocates its
/// buffer only after it has opened, and truncated, the archive.
std::string AllocationFaults::judgeDestination(const std::string& ending) const {
    const std::optional<Tree> now = destination();
    if (ending == "done") return now == complete_ ? "" : ", defect: destination incomplete";
    if (now == old_) return "";
    const bool truncated = GetParam().makes && now == Tree{{"", ""}} && ending == "bad_alloc";
    return truncated ? ", archive truncated" : ", defect: destination changed";
}

/// Judges an end of the process during a walk: of a source, of a staging tree, or of a replaced old
/// tree.
std::string AllocationFaults::judgeTermination() const {
    const std::optional<Tree> now = destination();
    const bool replaced = !GetParam().makes && GetParam().replaces && now == complete_;
    const bool whole = now == old_ || replaced;
    return (whole ? "terminated" : "terminated, defect: destination changed") + judgeNextCall();
}

/// Checks that nothing is beside the destination: deleting staging and what was replaced allocates
/// nothing.
std::string AllocationFaults::judgeSurroundings() const {
    for (const auto& entry : fs::directory_iterator(to().parent_path())) {
        const std::string name = entry.path().filename().native();
        if (name != "destination") return ", defect: left " + name;
    }
    return "";
}

/// Repeats the call without faults, in the state that the last one left.
std::string AllocationFaults::judgeNextCall() const {
    if (!old_) fs::remove_all(to());
    GetParam()(from(), to());
    if (standin::takePendingError()) return ", defect: the next call fails";
    if (destination() != complete_) return ", defect: the next call gives something else";
    return "";
}

/// Returns the number of allocations of a call without faults.
std::size_t AllocationFaults::countAllocations() {
    prepare();
    return std::stoul(inChild([&] {
        const fs::path source = from();
        const fs::path target = to();
        armAllocationFaults(0, FaultReach::once);
        GetParam()(source, target);
        return std::to_string(disarmAllocationFaults().requests);
    }));
}

void AllocationFaults::sweep(FaultReach reach) {
    const std::size_t allocations = countAllocations();
    ASSERT_GT(allocations, leastAllocations) << "the library's allocations are not seen";
    std::map<std::string, std::size_t> verdicts;
    for (std::size_t number = 1; number <= allocations + 1; ++number) {
        prepare();
        std::string verdict = inChild([&] { return run(number, reach); }, atTermination);
        if (verdict == "terminated") verdict = judgeTermination();
        EXPECT_EQ(verdict.find("defect"), std::string::npos)
            << "fault " << number << ": " << verdict;
        EXPECT_EQ(verdict.find("child failed"), std::string::npos) << "fault " << number;
        EXPECT_EQ(verdict == "done", number > allocations) << "fault " << number;
        ++verdicts[verdict];
    }
    EXPECT_LE(verdicts["module: bad_alloc, archive truncated"], GetParam().makes ? 1U : 0U);
    // The directory of one file of the archive does not exist yet, so the file cannot be opened
    // even with memory. It is opened again once the directory is made.
    if (!library.doesWithout) {
        EXPECT_LE(verdicts["module: done"], GetParam().makes ? 0U : 1U);
    }
    for (const auto& [verdict, count] : verdicts) {
        std::printf("%5zu %s\n", count, verdict.c_str());
    }
}

TEST_P(AllocationFaults, LeakAndChangeNothingWhenOneFails) {
    sweep(FaultReach::once);
}

TEST_P(AllocationFaults, LeakAndChangeNothingWhenAllFailFromOneOn) {
    sweep(FaultReach::fromThenOn);
}

INSTANTIATE_TEST_SUITE_P(EveryFunction, AllocationFaults, ::testing::ValuesIn(archiveCalls),
                         [](const auto& row) { return row.param.name; });

}  // namespace

}  // namespace vesk::testing
