// SPDX-License-Identifier: MIT
// The renames of the test executable: they do what the system's do, or fail as a test demands.
#pragma once

#include <functional>
#include <string>

/// Takes over rename and renameat2 from construction to destruction; one at a time.
class RenameFaults {
public:
    RenameFaults();
    ~RenameFaults();
    RenameFaults(const RenameFaults&) = delete;
    RenameFaults& operator=(const RenameFaults&) = delete;

    /// Called, when set, before each call; its result is the errno to fail with, 0 to go on.
    std::function<int(unsigned flags)> beforeRenameat2;
    std::function<int(const std::string& from, const std::string& to)> beforeRename;

    /// How often the functions were called.
    int renameat2Calls = 0;
    int renameCalls = 0;
};
