// SPDX-License-Identifier: MIT
// Whole archives to be damaged, and the results of unpacking them.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tests/support/memory_dir.h"
#include "tests/support/module_calls.h"
#include "tests/support/recording_host.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tree.h"

namespace vesk::testing {

/// The result of a Workshop for an archive that was unpacked to exactly the expected tree.
inline constexpr std::string_view unpackedWhole = "(unpacked)";

/// Makes archives of one tree and unpacks damaged copies of them.
class Workshop {
public:
    explicit Workshop(Tree tree) : tree_(std::move(tree)), directory_(makeMemoryDir()) {}

    /// Returns the module's archive of the tree.
    std::string made(Container container) {
        const std::string source = *directory_ / "source";
        writeTree(source, tree_);
        RecordingHost host;
        makeArchive(container, source.c_str(), archive_.c_str(), true);
        EXPECT_EQ(host.pendingMessage, std::nullopt);
        return readFile(archive_);
    }

    /// Returns `content` as `gzip -9` compresses it.
    std::string gzipped(std::string_view content) {
        const std::string plain = *directory_ / "plain";
        const std::string packed = *directory_ / "packed";
        writeFile(plain, content);
        const std::string command = "gzip -9 -n -c '" + plain + "' > '" + packed + "'";
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        return readFile(packed);
    }

    /// Unpacks the archive `bytes`. Returns the message of the failure, after which nothing may be
    /// left, or unpackedWhole when the whole tree was unpacked.
    std::string unpacked(Container container, std::string_view bytes) {
        writeFile(archive_, bytes);
        std::filesystem::create_directory(box_);
        const std::string destination = box_ / "out";
        RecordingHost host;
        unpackArchive(container, archive_.c_str(), destination.c_str());
        std::string outcome = host.pendingMessage.value_or(std::string(unpackedWhole));
        if (host.pendingMessage && !std::filesystem::is_empty(box_)) outcome += " (left something)";
        if (!host.pendingMessage && readTree(destination) != tree_) outcome = "(another tree)";
        if (host.raiseCount > 1) outcome += " (raised twice)";
        std::filesystem::remove_all(box_);
        return outcome;
    }

private:
    Tree tree_;
    std::unique_ptr<TempDir> directory_;
    std::filesystem::path box_ = *directory_ / "box";
    std::string archive_ = *directory_ / "archive";
};

/// Returns `bytes` with one bit of the byte at `offset` flipped.
inline std::string flipped(std::string bytes, std::size_t offset, int bit) {
    bytes[offset] = static_cast<char>(bytes[offset] ^ (1 << bit));
    return bytes;
}

}  // namespace vesk::testing
