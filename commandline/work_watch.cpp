// SPDX-License-Identifier: MIT
// Turning host calls and decoded pieces into progress and counts.
#include "commandline/work_watch.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <new>
#include <system_error>
#include <utility>

#include "commandline/interruption.h"

namespace vesk::commandline {

using standin::DecodedPiece;
using standin::HostCall;

WorkWatch::WorkWatch(Stage first) : progress_(first) {
    standin::observeCalls(heedCall, this);
    standin::observeDecoding(heedPiece, this);
}

WorkWatch::~WorkWatch() {
    standin::observeCalls(nullptr, nullptr);
    standin::observeDecoding(nullptr, nullptr);
}

void WorkWatch::heedCall(void* context, HostCall call) {
    static_cast<WorkWatch*>(context)->onCall(call);
    throwIfInterrupted();
}

void WorkWatch::heedPiece(void* context, const DecodedPiece& piece) {
    static_cast<WorkWatch*>(context)->onPiece(piece);
    throwIfInterrupted();
}

void WorkWatch::countCall(std::uint64_t before) {
    ++calls_;
    if (calls_ <= before) return;
    entries_ = (calls_ - before) / 2;
    progress_.note(entries_);
}

MakingWatch::MakingWatch(std::string source, bool looksAround)
    : WorkWatch(Stage::walking), source_(std::move(source)) {
    if (looksAround) walk_.emplace();
}

// One such call comes after the walk, then two for each entry, and one at the end.
void MakingWatch::onCall(HostCall call) {
    if (call != HostCall::hasPendingError) return;
    const bool walkHasEnded = calls_ == 0;
    if (walkHasEnded) {
        if (walk_) walk_->end();
        progress_.enter(Stage::readingFiles);
    }
    countCall(1);
}

Moment MakingWatch::moment() {
    Moment moment = progress_.moment();
    if (!walk_) return moment;
    if (moment.stage == Stage::walking) moment.done = walk_->namesMet();
    if (moment.stage != Stage::readingFiles) return moment;

    if (!total_) total_ = walk_->storedFiles(source_);
    moment.total = *total_;
    const bool allIsRead = moment.done == moment.total;
    if (allIsRead) moment = {Stage::writing, 0, 0, moment.stageBegan};
    return moment;
}

SourceFindings MakingWatch::findings() {
    return walk_ ? walk_->findings(source_, entries_) : SourceFindings{};
}

UnpackingWatch::UnpackingWatch(const std::string& archive, bool isCompressed, bool looksAround)
    : WorkWatch(Stage::readingArchive), isCompressed_(isCompressed), looksAround_(looksAround) {
    if (!looksAround_) return;
    // Opening a FIFO would wait for a writer.
    archive_ = open(archive.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat status {};
    if (fstat(archive_, &status) == 0 && S_ISREG(status.st_mode))
        archiveSize_ = static_cast<std::uint64_t>(status.st_size);
}

UnpackingWatch::~UnpackingWatch() {
    tallyIsStopped_ = true;
    if (tallying_.joinable()) tallying_.join();
    if (archive_ != -1) close(archive_);
}

// The paths of the archive and the destination are converted once, each entry's name twice.
void UnpackingWatch::onCall(HostCall call) {
    if (call == HostCall::hasPendingError && isCompressed_)
        progress_.enter(Stage::decoding, archiveSize_);
    if (call == HostCall::commitExtractionStaging) noteMoving();
    if (call != HostCall::runtimeFsPath) return;

    const bool isDestination = calls_ == 1;
    if (isDestination) {
        progress_.enter(Stage::unpacking, tally_.entries());
        if (!isCompressed_ && archiveSize_ > 0) beginTally();
    }
    countCall(2);
}

// Reading the headers of small files takes some hundredths of the time in which they are unpacked.
// So it is done at the same time.
void UnpackingWatch::beginTally() {
    try {
        tallying_ = std::thread([this] { tallyFile(); });
    } catch (const std::system_error&) {
        tallyFile();
    }
}

void UnpackingWatch::tallyFile() {
    try {
        tally_.takeFile(archive_, tallyIsStopped_);
        progress_.expect(Stage::unpacking, tally_.entries());
    } catch (const std::bad_alloc&) {
        // The unpacking does not depend on it.
    }
}

Group UnpackingWatch::executables() {
    if (tallying_.joinable()) tallying_.join();
    return tally_.takeExecutables();
}

void UnpackingWatch::onPiece(const DecodedPiece& piece) {
    if (looksAround_) tally_.take(piece.bytes);
    progress_.note(piece.inputUsed);
}

}  // namespace vesk::commandline
