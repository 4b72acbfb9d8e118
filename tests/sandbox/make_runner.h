// SPDX-License-Identifier: MIT
// Makes one archive in an existing sandbox, and has the run judged.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tests/sandbox/findings.h"
#include "tests/sandbox/make_judge.h"
#include "tests/sandbox/make_model.h"
#include "tests/sandbox/program_copy.h"
#include "tests/support/memory_dir.h"

namespace vesk::testing {

class MakeRunner {
public:
    MakeRunner();

    /// The place for the sandbox.
    std::string top() const { return *directory_ / "sandbox"; }

    /// Runs vesk-archive as `user`; the sandbox is at top() and the working directory in it.
    /// Findings begin with `title`. A source or an archive outside the sandbox is left alone.
    void run(const MakeCase& makeCase, const ActingUser& user, const std::string& title);

    const Findings& findings() const { return findings_; }
    std::uint64_t certainSuccesses() const { return certainSuccesses_; }
    std::uint64_t certainFailures() const { return certainFailures_; }
    std::uint64_t successes() const { return successes_; }

private:
    MakeResult runProgram(const MakeCase& makeCase, const MakeScene& scene) const;
    bool isInside(const KernelPlace& place) const;

    const std::unique_ptr<TempDir> directory_ = makeMemoryDir();
    const ProgramCopy program_;
    Findings findings_;
    std::uint64_t certainSuccesses_ = 0;
    std::uint64_t certainFailures_ = 0;
    std::uint64_t successes_ = 0;
};

}  // namespace vesk::testing
