// SPDX-License-Identifier: MIT
// Following one call of the module by what it asks its host.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "commandline/header_tally.h"
#include "commandline/progress.h"
#include "commandline/source_walk.h"
#include "standinhost/standin_host.h"

namespace vesk::commandline {

class MakingFile;

/// Observes the calling thread's host calls for as long as it lives, and throws Interruption out of
/// them when a signal asks for the end.
class WorkWatch {
public:
    virtual ~WorkWatch();
    WorkWatch(const WorkWatch&) = delete;
    WorkWatch& operator=(const WorkWatch&) = delete;

    /// Returns how many entries have been stored or unpacked.
    std::uint64_t entries() const { return entries_; }

    /// Returns how far the work is. For the one thread that shows it.
    virtual Moment moment() { return progress_.moment(); }

    /// The module's work is done; what it has made or unpacked is moved into its place.
    void noteMoving() { progress_.enter(Stage::moving); }

protected:
    explicit WorkWatch(Stage first);

    virtual void onCall(standin::HostCall call) = 0;
    virtual void onPiece(const standin::DecodedPiece& /*piece*/) {}

    /// An entry takes two of the counted calls, after `before` others.
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
    /// With `looksAround`, it is found what the archive will not hold.
    MakingWatch(std::string source, bool looksAround);

    /// `file` is created when the module has collected its entries: it becomes none of them.
    void createThen(MakingFile& file) { file_ = &file; }

    Moment moment() override;

    /// Returns what the finished archive does not hold, or not as it was. Once.
    SourceFindings findings();

private:
    void onCall(standin::HostCall call) override;

    std::string source_;
    std::optional<SourceWalk> walk_;
    MakingFile* file_ = nullptr;
    std::optional<std::uint64_t> total_;  ///< entries, once the thread that shows it has asked
};

/// Watches an archive being unpacked.
class UnpackingWatch : public WorkWatch {
public:
    /// `isCompressed` tells whether it is to be decoded. With `looksAround`, its headers are read.
    UnpackingWatch(const std::string& archive, bool isCompressed, bool looksAround);
    ~UnpackingWatch() override;

    /// Returns the files whose mode lets somebody execute them. Once.
    Group executables() noexcept { return tally_.takeExecutables(); }

private:
    void onCall(standin::HostCall call) override;
    void onPiece(const standin::DecodedPiece& piece) override;

    bool isCompressed_;
    bool looksAround_;
    /// Opened before the module opens it: the path may name another file later. -1 for none.
    int archive_ = -1;
    std::uint64_t archiveSize_ = 0;
    HeaderTally tally_;
};

}  // namespace vesk::commandline
