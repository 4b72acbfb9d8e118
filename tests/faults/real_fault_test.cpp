// SPDX-License-Identifier: MIT
// Faults that the system itself causes: full file systems, limits of the process, and files that
// change while they are read.
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/faults/archive_calls.h"
#include "tests/faults/file_faults.h"
#include "tests/faults/file_steps.h"
#include "tests/support/in_child.h"
#include "tests/support/temp_dir.h"

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;
using namespace std::literals;

// Much more than a stream reads ahead, packed or not.
const std::string text = noise(100000);

/// Returns the message that the call raised, with the test's directory as ROOT, or "done".
std::string endingOf(const ArchiveCall& call, const fs::path& root, const fs::path& from,
                     const fs::path& to) {
    call(from, to);
    const auto error = standin::takePendingError();
    if (!error) return "done";
    std::string message = error->message;
    const std::size_t found = message.find(root.native());
    return found == std::string::npos ? message
                                      : message.replace(found, root.native().size(), "ROOT");
}

/// Makes the space smaller than the files of these tests: with a file system of 64 KiB or, where
/// this process may not mount one, with a limit of 64 KiB for files.
void leaveLittleRoom(const fs::path& directory) {
    if (unshare(CLONE_NEWNS) == 0 && mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) == 0 &&
        mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=64k") == 0) {
        std::fprintf(stderr, "a file system of 64 KiB\n");
        return;
    }
    std::fprintf(stderr, "no file system may be mounted; files of at most 64 KiB\n");
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{65536, 65536};
    setrlimit(RLIMIT_FSIZE, &limit);
}

void limitFileSize(const fs::path& /*directory*/) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{2048, 2048};
    setrlimit(RLIMIT_FSIZE, &limit);
}

/// Allows `count` more open files than there are now.
void allowDescriptors(rlim_t count) {
    std::vector<int> taken;
    for (rlim_t number = 0; number <= count; ++number)
        taken.push_back(dup(STDIN_FILENO));
    for (const int descriptor : taken)
        close(descriptor);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = static_cast<rlim_t>(taken.back());
    setrlimit(RLIMIT_NOFILE, &limit);
}

void allowDescriptorsAgain() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

[[maybe_unused]] void allowNoDescriptor(const fs::path& /*directory*/) {
    allowDescriptors(0);
}

[[maybe_unused]] void allowOneDescriptor(const fs::path& /*directory*/) {
    allowDescriptors(1);
}

[[maybe_unused]] void allowThreeDescriptors(const fs::path& /*directory*/) {
    allowDescriptors(3);
}

[[maybe_unused]] void allowFourDescriptors(const fs::path& /*directory*/) {
    allowDescriptors(4);
}

/// A call from `from` to work/new in a restricted process, how it ends, and what is in the work
/// directory afterwards.
struct Restriction {
    const char* name;
    void (*restrict)(const fs::path& workDirectory);
    bool makes;
    const char* from;
    const char* ending;
    const char* left;
};

// clang-format off
const std::vector<Restriction> restrictions = {
    {"MakeWithLittleRoom", leaveLittleRoom, true, "file", "Cannot finalize archive", "new"},
    {"UnpackWithLittleRoom", leaveLittleRoom, false, "packed", "Cannot finalize TAR entry", ""},
    {"MakeWithSmallFilesOnly", limitFileSize, true, "tree", "Cannot finalize archive", "new"},
    {"UnpackWithSmallFilesOnly", limitFileSize, false, "packed", "Cannot finalize TAR entry", ""},
// The sanitizers need descriptors of their own and take the lack of one for a defect.
#ifndef VESK_SANITIZED
    {"MakeFromFileWithoutDescriptors", allowNoDescriptor, true, "file",
     "Cannot read file: ROOT/file", ""},
    {"MakeFromTreeWithoutDescriptors", allowNoDescriptor, true, "tree",
     "Cannot enumerate archive source", ""},
    {"MakeFromTreeWithOneDescriptor", allowOneDescriptor, true, "tree",
     "Cannot enumerate archive source", ""},
    {"UnpackWithoutDescriptors", allowNoDescriptor, false, "packed",
     "Cannot read file: ROOT/packed", ""},
    {"MakeFromFileWithOneDescriptor", allowOneDescriptor, true, "file", "done", "new"},
    {"UnpackWithOneDescriptor", allowOneDescriptor, false, "packed",
     "Cannot create staging directory", ""},
    // The stand-in holds three, and the file that is written needs one.
    {"UnpackWithThreeDescriptors", allowThreeDescriptors, false, "packed",
     "Cannot write TAR entry", ""},
    {"UnpackWithFourDescriptors", allowFourDescriptors, false, "packed", "done", "new"},
#endif
};

/// A change right before the module makes the file call `call`, and how the module's own call ends.
struct Change {
    const char* name;
    bool makes;
    const char* from;
    std::string call;
    void (*change)(const fs::path& root);
    const char* ending;
    int occurrence = 1;  ///< of the file call
};

void removeStaging(const fs::path& root) {
    fs::remove_all(*fs::directory_iterator(root / "work"));
}

const std::vector<Change> changes = {
    {"SourceFileShrinks", true, "file", readingFunction + " file"s,
     [](const fs::path& root) { fs::resize_file(root / "file", 99999); },
     "Cannot read file: ROOT/file"},
    {"SourceFileVanishes", true, "tree", "fopen tree/sub/file",
     [](const fs::path& root) { fs::remove(root / "tree/sub/file"); },
     "Cannot read file: ROOT/tree/sub/file"},
    {"DirectoryVanishesBeforeItIsOpened", true, "tree", directoryFunction + " tree/sub"s,
     [](const fs::path& root) { fs::remove_all(root / "tree/sub"); },
     "Cannot enumerate archive source"},
    {"DirectoryVanishesOnceItIsOpen", true, "tree", "readdir tree/sub",
     [](const fs::path& root) { fs::remove_all(root / "tree/sub"); }, "done"},
    {"ArchiveShrinks", false, "packed", readingFunction + " packed"s,
     [](const fs::path& root) { fs::resize_file(root / "packed", 20); },
     "Cannot read file: ROOT/packed"},
    {"StagingDirectoryVanishes", false, "packed", "create work/STAGING/large", removeStaging,
     "Cannot create TAR entry directory"},
    {"DirectoryOfAFileVanishesOnceItIsMade", false, "nested", "create work/STAGING/deep/large",
     removeStaging, "Cannot write TAR entry", 2},
};
// clang-format on

class RealFaults : public ::testing::TestWithParam<bool> {
protected:
    RealFaults() { reset(); }

    void reset() const {
        writeFile(root_ / "file", text);
        pack("packed", tarEntry("large", text) + tarEnd());
        pack("nested", tarEntry("deep/large", text) + tarEnd());
        fs::remove_all(root_ / "tree");
        writeTree(root_ / "tree", {{"sub/file", text}});
        fs::remove_all(root_ / "work");
        fs::create_directory(root_ / "work");
    }

    void pack(const char* name, const std::string& stream) const {
        writeFile(root_ / name, GetParam() ? memberOf(stream) : stream);
    }

    const ArchiveCall& call(bool makes) const {
        return archiveCalls[(GetParam() ? 4 : 0) + (makes ? 0 : 2)];
    }

    std::string endingOf(bool makes, const char* from) const {
        return testing::endingOf(call(makes), root_.path(), root_ / from, root_ / "work/new");
    }

    /// Returns the names in the work directory.
    std::string left() const {
        std::string names;
        for (const auto& entry : fs::directory_iterator(root_ / "work"))
            names += entry.path().filename().native();
        return names;
    }

    TempDir root_;
};

}  // namespace

TEST_P(RealFaults, FullDeviceEndsInCannotFinalizeArchive) {
    const ArchiveCall& replacing = archiveCalls[GetParam() ? 5 : 1];
    for (const char* const source : {"file", "tree"}) {
        EXPECT_EQ(testing::endingOf(replacing, root_.path(), root_ / source, "/dev/full"),
                  "Cannot finalize archive");
    }
}

TEST_P(RealFaults, RestrictedProcessGetsTheMessageOfTheStep) {
    for (const Restriction& row : restrictions) {
        SCOPED_TRACE(row.name);
        reset();
        const std::string report = inChild([&] {
            row.restrict(root_ / "work");
            const std::string ending = endingOf(row.makes, row.from);
            allowDescriptorsAgain();
            return ending + ", left: " + left();
        });
        EXPECT_EQ(report, std::string(row.ending) + ", left: " + row.left);
    }
}

TEST_P(RealFaults, ChangesMeanwhileEndInTheMessageOfTheStep) {
    for (const Change& row : changes) {
        SCOPED_TRACE(row.name);
        reset();
        int occurrences = 0;
        armFileFaults(root_.path(), {0, 0}, [&](const std::string& call) {
            if (call == row.call && ++occurrences == row.occurrence) row.change(root_.path());
        });
        const std::string ending = endingOf(row.makes, row.from);
        disarmFileFaults();
        EXPECT_GE(occurrences, row.occurrence);
        EXPECT_EQ(ending, row.ending);
        EXPECT_EQ(left(), ending == "done" ? "new" : "");
    }
}

TEST_P(RealFaults, GrowingFileIsArchivedAtTheQueriedSize) {
    ASSERT_EQ(endingOf(true, "file"), "done");
    const std::string before = readFile(root_ / "work/new");
    fs::remove(root_ / "work/new");
    armFileFaults(root_.path(), {0, 0}, [&](const std::string& call) {
        if (call == readingFunction + " file"s) writeFile(root_ / "file", text + "more");
    });
    const std::string ending = endingOf(true, "file");
    disarmFileFaults();
    EXPECT_EQ(ending, "done");
    EXPECT_EQ(fs::file_size(root_ / "file"), 100004U);
    EXPECT_TRUE(readFile(root_ / "work/new") == before);
}

INSTANTIATE_TEST_SUITE_P(BothContainers, RealFaults, ::testing::Bool(),
                         [](const auto& row) { return std::string(row.param ? "Tgz" : "Tar"); });

}  // namespace vesk::testing
