// SPDX-License-Identifier: MIT
// Fuzz target: archives and unpacks the tree that the input describes, with the methods of both
// classes. The tree must come back, or be refused for the reason that its names give.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "fuzz/gzip_model.h"
#include "fuzz/require.h"
#include "fuzz/tar_model.h"
#include "fuzz/unpack_box.h"
#include "module/native_methods.h"
#include "tests/support/memory_dir.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tree.h"

namespace fuzzing = vesk::fuzzing;
namespace fs = std::filesystem;
using vesk::testing::Tree;

namespace {

// Reads the input from its beginning, and zeros after its end.
class Description {
public:
    explicit Description(std::string_view bytes) : rest_(bytes) {}

    bool atEnd() const { return rest_.empty(); }

    std::uint8_t byte() {
        const std::string text = bytes(1);
        return text.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(text[0]);
    }

    std::string bytes(std::size_t count) {
        const std::string text(rest_.substr(0, count));
        rest_.remove_prefix(text.size());
        return text;
    }

    // Returns a file name: up to seven bytes from the input, and a tail that makes it long.
    std::string component() {
        std::string name = bytes(byte() % 8);
        std::replace(name.begin(), name.end(), '/', 's');
        std::replace(name.begin(), name.end(), '\0', 'z');
        const std::uint8_t tail = byte();
        if (tail >= 128) name.append(tail - std::size_t{128}, 't');
        if (name.empty() || name == "." || name == "..") name += 'n';
        return name;
    }

    std::string content() {
        std::string content = bytes(byte() % 32);
        const std::size_t size = std::size_t{byte()} * 257;
        while (content.size() < size)
            content += content.empty() ? "c" : content;
        return content;
    }

private:
    std::string_view rest_;
};

bool collides(const Tree& tree, const std::string& name) {
    return std::any_of(tree.begin(), tree.end(), [&](const auto& file) {
        const std::string& other = file.first;
        return other == name || other.starts_with(name + "/") || name.starts_with(other + "/");
    });
}

Tree describedTree(Description& description) {
    Tree tree;
    while (!description.atEnd() && tree.size() < 12) {
        std::string name = description.component();
        for (int depth = description.byte() % 5; depth > 0; --depth)
            name.append("/").append(description.component());
        std::string content = description.content();
        if (!collides(tree, name)) tree.emplace(std::move(name), std::move(content));
    }
    return tree;
}

// Tells whether a name fits one field of 100 bytes, or two fields when it is split at some slash.
bool isStorable(const std::string& name) {
    if (name.size() <= 100) return true;
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == '/' && i <= 155 && name.size() - i - 1 <= 100) return true;
    }
    return false;
}

using Method = void(void*, const char*, const char*, void*);

struct Archiver {
    Method* make;
    Method* unpack;
    bool compressed;
};

// Checks that the second reader finds the tree in the archive.
void checkArchive(const std::string& path, bool compressed, const fuzzing::Expected& expected) {
    std::string archive = vesk::testing::readFile(path);
    if (compressed) {
        const fuzzing::ExpectedContent content = fuzzing::expectedContent(archive);
        fuzzing::require(content.refusals.empty(), "what is written is a gzip member");
        archive = content.content;
    }
    const fuzzing::Expected read = fuzzing::expectedExtraction(archive);
    fuzzing::require(read.message == expected.message && read.tree == expected.tree,
                     "the archive holds the tree", read.message);
}

void roundTrip(const Archiver& archiver, const Tree& tree) {
    static fuzzing::UnpackBox box;
    static const auto directory = vesk::testing::makeMemoryDir();
    const fs::path source = *directory / "source";
    fs::remove(box.archive());
    vesk::testing::writeTree(source, tree);

    archiver.make(nullptr, source.c_str(), box.archive().c_str(), nullptr);
    fs::remove_all(source);
    const auto refused = fuzzing::takeMessage();
    const bool storable = std::all_of(tree.begin(), tree.end(),
                                      [](const auto& file) { return isStorable(file.first); });
    fuzzing::require(refused.value_or("") == (storable ? "" : "TAR entry name is too long"),
                     "exactly the names that fit are archived", refused.value_or("success"));
    fuzzing::require(fs::exists(box.archive()) == storable, "a refusal makes no archive");
    if (!storable) return;

    const bool safe = std::all_of(tree.begin(), tree.end(), [](const auto& file) {
        return file.first.find_first_of(":\\") == std::string::npos;
    });
    fuzzing::Expected expected{safe ? "" : "Unsafe TAR entry name", {}};
    if (safe) expected.tree = tree;
    checkArchive(box.archive(), archiver.compressed, expected);
    archiver.unpack(nullptr, box.archive().c_str(), box.destination().c_str(), nullptr);
    box.requireOutcome(expected, fuzzing::takeMessage());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Description description({reinterpret_cast<const char*>(data), size});
    const bool compressed = description.byte() % 2 == 1;
    const Archiver archiver = compressed
                                  ? Archiver{vesk_io_archives_TgzArchiver_makeArchive,
                                             vesk_io_archives_TgzArchiver_unpackArchive, true}
                                  : Archiver{vesk_io_archives_TarArchiver_makeArchive,
                                             vesk_io_archives_TarArchiver_unpackArchive, false};
    roundTrip(archiver, describedTree(description));
    return 0;
}
