// SPDX-License-Identifier: MIT
// The place where fuzz targets unpack.
#include "fuzz/unpack_box.h"

#include <fcntl.h>
#include <unistd.h>

#include "fuzz/require.h"
#include "standinhost/standin_host.h"

namespace vesk::fuzzing {

namespace {

namespace fs = std::filesystem;

// The names in `directory`, each followed by a space.
std::string namesIn(const fs::path& directory) {
    std::string names;
    for (const auto& entry : fs::directory_iterator(directory))
        names += entry.path().filename().native() + " ";
    return names;
}

std::string shown(const testing::Tree& tree) {
    std::string text;
    for (const auto& [name, content] : tree)
        text += name + " (" + std::to_string(content.size()) + " bytes) ";
    return text;
}

}  // namespace

UnpackBox::UnpackBox()
    : directory_(testing::makeMemoryDir()),
      box_(directory_->path() / "around" / "deep" / "box"),
      destination_(box_ / "out"),
      archive_(directory_->path() / "archive") {
    fs::create_directories(box_);
}

void UnpackBox::requireNothingOutside() const {
    fs::path inner = box_;
    for (fs::path outer = box_.parent_path(); outer != directory_->path();
         outer = outer.parent_path()) {
        require(namesIn(outer) == inner.filename().native() + " ",
                "nothing is made outside the destination", namesIn(outer));
        inner = outer;
    }
}

void UnpackBox::requireOutcome(const Expected& expected,
                               const std::optional<std::string>& message) {
    require(message.value_or("") == expected.message, "the message is the right one",
            "got '" + message.value_or("") + "', not '" + expected.message + "'");
    requireNothingOutside();
    if (message) {
        require(namesIn(box_).empty(), "a failure leaves nothing", namesIn(box_));
        return;
    }
    require(namesIn(box_) == "out ", "a success leaves the destination alone", namesIn(box_));
    const testing::Tree tree = testing::readTree(destination_);
    require(tree == expected.tree, "the tree is the archive's",
            "got " + shown(tree) + ", not " + shown(expected.tree));
    fs::remove_all(destination_);
}

void writeArchive(const std::string& path, std::string_view bytes) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const ssize_t written = write(file, bytes.data(), bytes.size());
    require(written == static_cast<ssize_t>(bytes.size()) && close(file) == 0,
            "the fuzzer can write its input", path);
}

std::optional<std::string> takeMessage() {
    const auto pending = standin::takePendingError();
    if (!pending) return std::nullopt;
    require(pending->className == "IOException", "failures are IOExceptions", pending->className);
    require(!pending->message.empty(), "failures have a message");
    return pending->message;
}

}  // namespace vesk::fuzzing
