// SPDX-License-Identifier: MIT
// The place where fuzz targets unpack, and the comparison of the result with the expected one.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/tar_model.h"
#include "tests/support/memory_dir.h"

namespace vesk::fuzzing {

/// A destination deep inside a directory in memory, so that entries that leave it are noticed.
class UnpackBox {
public:
    UnpackBox();

    /// The destination: nothing is there between two inputs.
    const std::string& destination() const { return destination_; }

    /// The path of a file outside the box, for the archive.
    const std::string& archive() const { return archive_; }

    /// Requires the expected result of a call that failed with `message`, or succeeded when there
    /// is none: that message and nothing left, or that tree. Clears the box.
    void requireOutcome(const Expected& expected, const std::optional<std::string>& message);

private:
    void requireNothingOutside() const;

    std::unique_ptr<testing::TempDir> directory_;
    std::filesystem::path box_;
    std::string destination_;
    std::string archive_;
};

/// Writes `bytes` into the file at `path`.
void writeArchive(const std::string& path, std::string_view bytes);

/// Takes the pending exception, which must be an IOException, and returns its message; returns
/// nothing when none is pending.
std::optional<std::string> takeMessage();

}  // namespace vesk::fuzzing
