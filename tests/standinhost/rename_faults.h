// SPDX-License-Identifier: MIT
// The renames and flushes of the test executable: they do what the system's do, or fail as a test
// demands.
#pragma once

#include <functional>
#include <string>

/// Takes over renameat, renameat2, syncfs and fsync from construction to destruction; one at a
/// time.
class RenameFaults {
public:
    RenameFaults();
    ~RenameFaults();
    RenameFaults(const RenameFaults&) = delete;
    RenameFaults& operator=(const RenameFaults&) = delete;

    /// Called, when set, before each call but the rename inside the staging directory; its result
    /// is the errno to fail with, 0 to go on.
    std::function<int()> beforeExchange;
    std::function<int(const std::string& from, const std::string& to)> beforeRename;
    /// Called, when set, in place of each flush of the "file system" or a "directory": 0 or -1.
    std::function<int(const std::string& what)> flush;

    /// Number of calls: renameat2, which is called for exchanges only, and renameat.
    int exchangeCalls = 0;
    int renameCalls = 0;
};
