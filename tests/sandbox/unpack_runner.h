// SPDX-License-Identifier: MIT
// Makes one unpacking call in an existing sandbox, and has it judged.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tests/sandbox/findings.h"
#include "tests/sandbox/unpack_model.h"
#include "tests/support/memory_dir.h"

namespace vesk::testing {

class UnpackRunner {
public:
    UnpackRunner();

    /// The place for the sandbox, and one beside it for the archive.
    std::string top() const { return *directory_ / "sandbox"; }
    std::string archivePath() const { return *directory_ / "archive"; }

    /// Unpacks the archive at `archive` as `user`. The sandbox is at top(), with the working
    /// directory in it. Findings begin with `title`. A destination outside the sandbox is left
    /// alone.
    void run(const UnpackCase& unpackCase, const std::string& archive, const ActingUser& user,
             const std::string& title);

    const Findings& findings() const { return findings_; }
    std::uint64_t certainSuccesses() const { return certainSuccesses_; }
    std::uint64_t certainFailures() const { return certainFailures_; }
    std::uint64_t successes() const { return successes_; }

private:
    bool isHarmless(const KernelPlace& place) const;
    void count(const UnpackCase& unpackCase, const UnpackScene& scene, bool succeeded);

    const std::unique_ptr<TempDir> directory_ = makeMemoryDir();
    Findings findings_;
    std::uint64_t certainSuccesses_ = 0;
    std::uint64_t certainFailures_ = 0;
    std::uint64_t successes_ = 0;
};

}  // namespace vesk::testing
