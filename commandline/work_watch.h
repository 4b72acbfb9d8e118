// SPDX-License-Identifier: MIT
// Follows one call of the module by its calls of the runtime.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>

#include "commandline/header_tally.h"
#include "commandline/progress.h"
#include "commandline/source_walk.h"
#include "standinhost/standin_host.h"

namespace vesk::commandline {

/// During its lifetime, observes the host calls of the calling thread. Throws Interruption out of
/// them when a signal asks the process to end.
class WorkWatch {
public:
    virtual ~WorkWatch();
    WorkWatch(const WorkWatch&) = delete;
    WorkWatch& operator=(const WorkWatch&) = delete;

    /// Returns the number of entries stored or unpacked so far.
    std::uint64_t entries() const { return entries_; }

    /// Returns the progress. Only the thread that shows it may call this.
    virtual Moment moment() { return progress_.moment(); }

    /// The module is done; its result is now moved into place.
    void noteMoving() { progress_.enter(Stage::moving); }

protected:
    explicit WorkWatch(Stage first);

    virtual void onCall(standin::HostCall call) = 0;
    virtual void onPiece(const standin::DecodedPiece& /*piece*/) {}

    /// Counts a call. Each entry takes two of these calls, after the first `before`.
    void countCall(std::uint64_t before);

    // Progress and counts, for derived classes.
    Progress progress_;
    std::uint64_t calls_ = 0;
    std::uint64_t entries_ = 0;

private:
    static void heedCall(void* context, standin::HostCall call);
    static void heedPiece(void* context, const standin::DecodedPiece& piece);
};

/// Watches an archive being made.
class MakingWatch : public WorkWatch {
public:
    /// With `looksAround`, it finds what the archive will leave out.
    MakingWatch(std::string source, bool looksAround);

    Moment moment() override;

    /// Returns what the finished archive leaves out or changes. To be called once.
    SourceFindings findings();

private:
    void onCall(standin::HostCall call) override;

    std::string source_;
    std::optional<SourceWalk> walk_;
    std::optional<std::uint64_t> total_;  ///< entries; set when the showing thread asks
};

/// Watches an archive being unpacked.
class UnpackingWatch : public WorkWatch {
public:
    /// `isCompressed` says whether the archive is decoded. With `looksAround`, its headers are
    /// read.
    UnpackingWatch(const std::string& archive, bool isCompressed, bool looksAround);
    ~UnpackingWatch() override;

    /// Returns the files that somebody may execute. To be called once, after the work.
    Group executables();

private:
    void onCall(standin::HostCall call) override;
    void onPiece(const standin::DecodedPiece& piece) override;
    void beginTally();
    void tallyFile();

    bool isCompressed_;
    bool looksAround_;
    /// Opened before the module opens the archive, since the path may name another file later. -1
    /// if it is not needed or could not be opened.
    int archive_ = -1;
    std::uint64_t archiveSize_ = 0;
    HeaderTally tally_;
    std::thread tallying_;  ///< until it has ended, the tally belongs to it
    std::atomic<bool> tallyIsStopped_ = false;
};

}  // namespace vesk::commandline
