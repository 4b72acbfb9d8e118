// SPDX-License-Identifier: MIT
// The last words and their parts.
#include "commandline/last_words.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <string_view>

#include "commandline/staging_search.h"
#include "commandline/terminal.h"

namespace vesk::commandline {

namespace {

enum class Stage { making, makingInFile, unpacking };

// A stage is entered once its data is complete; after that, the data is neither changed nor freed.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables): a handler has no other way
std::atomic<Stage> stage = Stage::making;
std::atomic<bool> isTold = false;
std::atomic<int> makingDescriptor = -1;
const std::string* makingPath = nullptr;
const std::string* makingTarget = nullptr;
const std::string* shownMakingPath = nullptr;
const StagingPlace* place = nullptr;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)
static_assert(std::atomic<Stage>::is_always_lock_free, "read in a signal handler");

/// Whether the file that was made is now at the target's path.
bool archiveIsInPlace() {
    struct stat made {};
    struct stat there {};
    return fstat(makingDescriptor, &made) == 0 && lstat(makingTarget->c_str(), &there) == 0 &&
           made.st_dev == there.st_dev && made.st_ino == there.st_ino;
}

void tellMakingFile(FixedText& text) {
    const bool isGone = unlink(makingPath->c_str()) == 0 || errno == ENOENT;
    if (!isGone) {
        text << "; '" << *shownMakingPath << "' is left and can be removed";
    } else {
        text << (archiveIsInPlace() ? "; the archive was written"
                                    : "; the archive was not written");
    }
}

FixedText lastWords(bool isClearedAway) {
    FixedText text;
    text << liveLineErasure() << "vesk-archive: interrupted";
    switch (stage.load()) {
        case Stage::making:
            text << "; the archive was not written";
            break;
        case Stage::makingInFile:
            tellMakingFile(text);
            break;
        case Stage::unpacking:
            if (isClearedAway) {
                text << "; the destination is as it was";
            } else {
                tellStaging(*place, text);
            }
            break;
    }
    return text << "\n";
}

bool standardErrorTakesText() {
    pollfd standardError{STDERR_FILENO, POLLOUT, 0};
    return poll(&standardError, 1, 0) == 1 && (standardError.revents & POLLOUT) != 0;
}

}  // namespace

void expectMakingIn(const std::filesystem::path& temporary, const std::filesystem::path& target) {
    makingTarget = new std::string(target.native());
    makingPath = new std::string(temporary.native());
    // The path itself may lead through a descriptor of this process.
    const std::filesystem::path shown =
        target.parent_path() / std::filesystem::path(temporary).filename();
    shownMakingPath = new std::string(forStandardError(shown.native()));
    stage = Stage::makingInFile;
}

void noteMakingDescriptor(int descriptor) {
    makingDescriptor = descriptor;
}

void expectUnpacking(const std::filesystem::path& destination) {
    place = new StagingPlace(stagingPlace(destination));
    stage = Stage::unpacking;
}

void sayMakingLeftover() {
    struct stat status {};
    const bool isLeft = stage == Stage::makingInFile && lstat(makingPath->c_str(), &status) == 0 &&
                        S_ISREG(status.st_mode);
    if (!isLeft) return;
    writeText(STDERR_FILENO,
              "vesk-archive: '" + *shownMakingPath + "' is left and can be removed\n");
}

bool mayTellTheEnd() {
    return !isTold.exchange(true);
}

void sayLastWords() {
    if (mayTellTheEnd()) writeText(STDERR_FILENO, lastWords(true).view());
}

void sayLastWordsAtOnce() {
    if (!mayTellTheEnd()) return;
    const FixedText text = lastWords(false);
    if (standardErrorTakesText()) writeText(STDERR_FILENO, text.view());
}

}  // namespace vesk::commandline
