// SPDX-License-Identifier: MIT
// A new directory on another file system than that of TempDir.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "tests/support/temp_dir.h"

namespace vesk::testing {

/// Sets TMPDIR for as long as it lives.
class TemporaryFilesAt {
public:
    explicit TemporaryFilesAt(const char* directory) {
        if (const char* value = std::getenv("TMPDIR")) before_ = value;
        setenv("TMPDIR", directory, 1);
    }
    ~TemporaryFilesAt() {
        if (before_) {
            setenv("TMPDIR", before_->c_str(), 1);
        } else {
            unsetenv("TMPDIR");
        }
    }
    TemporaryFilesAt(const TemporaryFilesAt&) = delete;
    TemporaryFilesAt& operator=(const TemporaryFilesAt&) = delete;

private:
    std::optional<std::string> before_;
};

/// Makes a directory on the memory file system, which is fast and lists names in another order than
/// a disk. Where there is none, makes one beside the others.
inline std::unique_ptr<TempDir> makeMemoryDir() {
    if (access("/dev/shm", W_OK | X_OK) != 0) return std::make_unique<TempDir>();
    const TemporaryFilesAt memory("/dev/shm");
    return std::make_unique<TempDir>();
}

}  // namespace vesk::testing
