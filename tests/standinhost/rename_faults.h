// SPDX-License-Identifier: MIT
// The renames and flushes of the test executable: they call those of the system, or fail when a
// test asks for it.
#pragma once

#include <functional>
#include <string>

/// Replaces renameat, renameat2, syncfs and fsync from construction to destruction. Only one may
/// exist at a time.
class RenameFaults {
public:
    RenameFaults();
    ~RenameFaults();
    RenameFaults(const RenameFaults&) = delete;
    RenameFaults& operator=(const RenameFaults&) = delete;

    /// Called, when set, before each call but the rename inside the staging directory. Its result
    /// is the errno of the failure, or 0 to continue.
    std::function<int()> beforeExchange;
    std::function<int(const std::string& from, const std::string& to)> beforeRename;
    /// Called, when set, in place of each flush of the "file system" or a "directory". Returns 0 or
    /// -1.
    std::function<int(const std::string& what)> flush;

    /// The number of calls of renameat2, which is called for exchanges only, and of renameat.
    int exchangeCalls = 0;
    int renameCalls = 0;
};
