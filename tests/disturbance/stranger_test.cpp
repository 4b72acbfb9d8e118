// SPDX-License-Identifier: MIT
// In a directory where everybody may rename everything, another user replaces the staging directory
// while vesk-archive unpacks. Files of the user who unpacks, to which the replacement leads, must
// stay unchanged, and what is reported as unpacked must be whole.
//
// Each attempt is made at VESK_DISTURBANCES moments, by default 4, spread over the running time.
// The first one is made as soon as there is a staging directory.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <thread>

#include "tests/disturbance/running_program.h"
#include "tests/support/memory_dir.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/tar_bytes.h"
#include "tests/support/tree.h"

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

constexpr uid_t owner = 65534;
constexpr uid_t stranger = 65533;
constexpr int fileCount = 20000;

/// A copy of vesk-archive that everybody can run.
class ProgramForAll {
public:
    ProgramForAll() {
        const fs::path libraries[] = {VESK_MODULE, VESK_STANDIN_HOST};
        for (const char* room : {"bin", "lib"})
            fs::create_directory(directory_ / room);
        for (const fs::path& library : libraries)
            fs::copy_file(library, directory_ / "lib" / library.filename());
        fs::copy_file(VESK_ARCHIVE, path());
        fs::permissions(directory_.path(), fs::perms{0755});
        for (const auto& entry : fs::recursive_directory_iterator(directory_.path()))
            fs::permissions(entry, fs::perms{0755});
    }

    fs::path path() const { return directory_ / "bin/vesk-archive"; }

private:
    const TempDir directory_;
};

/// The directory that everybody may change, and two directories of the owner: one that nobody else
/// may enter, and one that others can rename.
struct SharedPlace {
    fs::path root;
    fs::path shared = root / "shared";
    fs::path closed = root / "closed";
    fs::path open = shared / "open";

    /// Returns the staging directory; empty when there is none.
    fs::path staging() const {
        for (const auto& entry : fs::directory_iterator(shared))
            if (entry.path().filename().native().starts_with(".tree.vesk-unpacking-"))
                return entry.path();
        return {};
    }
};

void putALink(const SharedPlace& place, const fs::path& staging) {
    std::error_code error;
    fs::rename(staging, place.shared / "taken", error);
    fs::create_directory_symlink(place.closed, staging, error);
}

void exchangeWithALink(const SharedPlace& place, const fs::path& staging) {
    const fs::path link = place.shared / "link";
    fs::create_directory_symlink(place.closed, link);
    for (int time = 0; time < 2001; ++time)
        renameat2(AT_FDCWD, staging.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE);
}

void putADirectoryOfLinks(const SharedPlace& place, const fs::path& staging) {
    std::error_code error;
    const fs::path directory = place.shared / "directory";
    fs::create_directory(directory);
    fs::permissions(directory, fs::perms{0777});
    for (const char* name : {"tree", "moved"})
        fs::create_directory_symlink(place.closed, directory / name);
    fs::rename(staging, place.shared / "taken", error);
    fs::rename(directory, staging, error);
}

void putTheOwnersDirectory(const SharedPlace& place, const fs::path& staging) {
    std::error_code error;
    fs::rename(staging, place.shared / "taken", error);
    fs::rename(place.open, staging, error);
}

struct Attempt {
    const char* name;
    void (*make)(const SharedPlace& place, const fs::path& staging);
};

std::ostream& operator<<(std::ostream& out, const Attempt& attempt) {
    return out << attempt.name;
}

const Attempt attempts[] = {
    {"Link", putALink},
    {"LinkThatComesAndGoes", exchangeWithALink},
    {"DirectoryOfLinks", putADirectoryOfLinks},
    {"DirectoryOfTheOwner", putTheOwnersDirectory},
};

/// Returns the attributes of everything below a directory of the owner, and the content.
std::map<std::string, std::string> describe(const fs::path& directory) {
    std::map<std::string, std::string> things;
    for (const auto& [name, content] : readTree(directory))
        things[name] = content;
    for (const char* name : {".", "file", "sub", "sub/file"}) {
        struct stat status {};
        if (lstat((directory / name).c_str(), &status) != 0) continue;
        things[name] += " " + std::to_string(status.st_mode) + " " + std::to_string(status.st_uid) +
                        " " + std::to_string(status.st_mtim.tv_sec) + "." +
                        std::to_string(status.st_mtim.tv_nsec);
    }
    return things;
}

class Stranger : public ::testing::TestWithParam<Attempt> {
protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "only the superuser can be two others";
        fs::permissions(place_.root, fs::perms{0755});
        std::string stream;
        for (int number = 0; number < fileCount; ++number) {
            const std::string name = (number % 2 == 0 ? "sub/" : "flat") + std::to_string(number);
            newTree_[name] = "new";
            stream += tarEntry(name, "new");
        }
        writeFile(place_.root / "archive.tar", stream + tarEnd());
    }

    void prepare() const {
        for (const fs::path& directory : {place_.shared, place_.closed}) {
            fs::remove_all(directory);
            fs::create_directory(directory);
        }
        fs::permissions(place_.shared, fs::perms{0777});
        fs::permissions(place_.closed, fs::perms{0700});
        for (const fs::path& directory : {place_.closed, place_.open}) {
            writeTree(directory, {{"file", "kept"}, {"sub/file", "kept"}});
            for (const char* name : {"", "file", "sub", "sub/file"})
                ASSERT_EQ(chown((directory / name).c_str(), owner, owner), 0);
        }
    }

    RunningProgram start() const {
        return RunningProgram({program_.path(), "unpack", "--quiet", place_.root / "archive.tar",
                               place_.shared / "tree"},
                              owner);
    }

    std::chrono::nanoseconds undisturbedTime() const {
        prepare();
        const auto begin = std::chrono::steady_clock::now();
        const ProgramEnd end = start().end();
        EXPECT_EQ(end.status, 0) << end.errors;
        return std::chrono::steady_clock::now() - begin;
    }

    /// Makes the attempt once there is a staging directory and `delay` has passed.
    std::string attempt(std::chrono::nanoseconds delay) const {
        const auto become = [] { return setgid(stranger) == 0 && setuid(stranger) == 0; };
        return inChildThatBecame(become, [&] {
            fs::path staging;
            while (staging.empty() && !fs::exists(place_.shared / "tree"))
                staging = place_.staging();
            std::this_thread::sleep_for(delay);
            if (!staging.empty()) GetParam().make(place_, staging);
            return std::string("made");
        });
    }

    void judge(const ProgramEnd& end) {
        ++ends_[end.status];
        const fs::path tree = place_.shared / "tree";
        if (end.status == 0) {
            EXPECT_EQ(readTree(tree), newTree_);
        } else {
            EXPECT_EQ(end.status, 1) << end.errors;
            EXPECT_FALSE(fs::exists(fs::symlink_status(tree)));
        }
        EXPECT_FALSE(fs::exists(place_.shared / "taken/tree"));
        EXPECT_FALSE(fs::exists(place_.shared / "taken/moved"));
    }

    const std::unique_ptr<TempDir> directory_ = makeMemoryDir();
    const SharedPlace place_{directory_->path()};
    const ProgramForAll program_;
    Tree newTree_;
    std::map<int, int> ends_;
};

TEST_P(Stranger, ChangesNothingThatBelongsToTheOwner) {
    const char* const wanted = std::getenv("VESK_DISTURBANCES");
    const int moments = wanted != nullptr ? std::atoi(wanted) : 4;
    const auto time = undisturbedTime();
    for (int moment = 0; moment < moments && !HasFailure(); ++moment) {
        SCOPED_TRACE(moment);
        prepare();
        const auto closed = describe(place_.closed);
        const auto open = describe(place_.open);
        RunningProgram program = start();
        ASSERT_EQ(attempt(time * moment / moments), "made");
        const ProgramEnd end = program.end();
        judge(end);
        EXPECT_EQ(describe(place_.closed), closed);
        const bool isMoved = !fs::exists(place_.open);
        EXPECT_EQ(describe(isMoved ? place_.staging() : place_.open), open);
    }
    std::printf("%d unpacked, %d failed\n", ends_[0], ends_[1]);
}

INSTANTIATE_TEST_SUITE_P(EveryWay, Stranger, ::testing::ValuesIn(attempts),
                         [](const auto& row) { return row.param.name; });

}  // namespace

}  // namespace vesk::testing
