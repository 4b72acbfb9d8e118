// SPDX-License-Identifier: MIT
// Every tree comes back from an archive, or is refused as independent rules predict.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <string_view>

#include "tests/support/memory_dir.h"
#include "tests/support/module_calls.h"
#include "tests/support/recording_host.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tree.h"

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

constexpr std::array containers{Container::tar, Container::tgz};

const char* nameOf(Container container) {
    return container == Container::tar ? "tar" : "tgz";
}

/// Returns the bytes in a form that a message can show.
std::string shown(std::string_view bytes) {
    std::string text;
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        char piece[5];
        std::snprintf(piece, sizeof piece, byte > ' ' && byte < 0x7F ? "%c" : "\\x%02x", byte);
        text += piece;
    }
    return text;
}

/// Random numbers that depend on the seed alone, with every standard library.
class Random {
public:
    explicit Random(std::uint64_t seed) : engine_(seed) {}

    std::size_t below(std::size_t bound) { return static_cast<std::size_t>(engine_() % bound); }
    std::size_t between(std::size_t low, std::size_t high) { return low + below(high - low + 1); }
    bool oneIn(std::size_t count) { return below(count) == 0; }

    template <typename Value, std::size_t Count>
    Value oneOf(const std::array<Value, Count>& values) {
        return values[below(Count)];
    }

    std::string bytes(std::size_t count) {
        std::string result(count, '\0');
        for (char& byte : result)
            byte = static_cast<char>(engine_());
        return result;
    }

private:
    std::mt19937_64 engine_;
};

/// The names that a random tree may contain.
struct NameRules {
    bool refusedByReader = false;
    bool tooLong = false;
};

/// Tells whether a name can be stored: in one field of 100 bytes, or split at a slash with at most
/// 155 bytes before and 100 bytes after it.
bool isStorable(const std::string& name) {
    if (name.size() <= 100) return true;
    for (std::size_t slash = 0; slash < name.size(); ++slash) {
        if (name[slash] == '/' && slash <= 155 && name.size() - slash - 1 <= 100) return true;
    }
    return false;
}

bool isRefusedByReader(const std::string& name) {
    return name.find_first_of(":\\") != std::string::npos;
}

char randomNameByte(Random& random, const NameRules& rules) {
    const std::string_view forbidden =
        rules.refusedByReader ? std::string_view("\0/", 2) : std::string_view("\0/:\\", 4);
    char byte = '\0';
    while (forbidden.find(byte) != std::string_view::npos) {
        byte = static_cast<char>(random.below(256));
    }
    return byte;
}

std::string randomComponent(Random& random, std::size_t length, const NameRules& rules) {
    std::string component;
    while (component.size() < length)
        component += randomNameByte(random, rules);
    const bool standsForDirectory = component == "." || component == "..";
    return standsForDirectory ? "x" : component;
}

std::string randomName(Random& random, const NameRules& rules) {
    const bool isLong = rules.tooLong || random.oneIn(2);
    const std::size_t length = isLong ? random.between(90, 260) : random.between(1, 30);
    const std::size_t longest = random.oneOf(std::array<std::size_t, 5>{4, 60, 100, 155, 255});
    std::string name;
    while (name.size() < length) {
        if (!name.empty()) name += '/';
        const std::size_t left = std::max<std::size_t>(1, length - name.size());
        name += randomComponent(random, random.between(1, std::min(longest, left)), rules);
    }
    return name;
}

/// Tells whether a file named `name` would need a directory where the tree has a file, or a file
/// where the tree has a directory.
bool isInTheWay(const Tree& tree, const std::string& name) {
    return std::any_of(tree.begin(), tree.end(), [&](const auto& file) {
        return (name + "/").starts_with(file.first + "/") || file.first.starts_with(name + "/");
    });
}

std::string freshName(Random& random, const Tree& tree, const NameRules& rules) {
    std::string name;
    do {
        name = randomName(random, rules);
    } while (isInTheWay(tree, name) || (!rules.tooLong && !isStorable(name)));
    return name;
}

/// Returns a size one below, at or one above one of the first multiples of the block size.
std::size_t randomSize(Random& random) {
    const std::size_t size = random.below(5) * 512 + random.below(3);
    return size == 0 ? 0 : size - 1;
}

std::size_t tarSize(const Tree& tree) {
    std::size_t size = 1024;
    for (const auto& [name, content] : tree)
        size += 512 + (content.size() + 511) / 512 * 512;
    return size;
}

/// Adds a file so that the length of the stream is the last one before, or the first one after, a
/// multiple of the 65535 bytes of a stored block.
void fillUpToBlockEnd(Random& random, Tree& tree) {
    const std::size_t streamBlocks = random.between(2, 4) * 65535 / 512 + random.below(2);
    const std::size_t room = streamBlocks * 512 - tarSize(tree) - 512;
    tree[freshName(random, tree, {})] = random.bytes(room - random.below(512));
}

Tree randomTree(Random& random) {
    const NameRules rules{random.oneIn(8), random.oneIn(4)};
    Tree tree;
    for (std::size_t count = random.below(9); count > 0; --count) {
        const std::string name = freshName(random, tree, rules);
        tree[name] = random.bytes(randomSize(random));
    }
    if (random.oneIn(8)) fillUpToBlockEnd(random, tree);
    return tree;
}

/// The expected result for a tree: the message of making an archive, the message of unpacking it,
/// or neither.
struct Prediction {
    std::optional<std::string> makeMessage;
    std::optional<std::string> unpackMessage;
};

Prediction predict(const Tree& tree) {
    Prediction prediction;
    for (const auto& [name, content] : tree) {
        if (!isStorable(name)) prediction.makeMessage = "TAR entry name is too long";
        if (isRefusedByReader(name)) prediction.unpackMessage = "Unsafe TAR entry name";
    }
    return prediction;
}

/// Expects that making an archive of `source` ends as predicted. Returns whether an archive exists.
bool makeAsPredicted(Container container, const fs::path& source, const fs::path& archive,
                     const Prediction& prediction) {
    RecordingHost host;
    makeArchive(container, source.c_str(), archive.c_str());
    EXPECT_EQ(host.pendingMessage, prediction.makeMessage);
    EXPECT_EQ(fs::exists(archive), !prediction.makeMessage);
    return fs::exists(archive);
}

/// Expects that unpacking `archive` ends as predicted: with the whole tree, or with nothing
/// changed.
void unpackAsPredicted(Container container, const fs::path& archive, const fs::path& parent,
                       const Tree& tree, const Prediction& prediction) {
    fs::create_directory(parent);
    RecordingHost host;
    unpackArchive(container, archive.c_str(), (parent / "out").c_str());
    EXPECT_EQ(host.pendingMessage, prediction.unpackMessage);
    if (prediction.unpackMessage) {
        EXPECT_TRUE(fs::is_empty(parent));
    } else if (fs::exists(parent / "out")) {
        EXPECT_TRUE(readTree(parent / "out") == tree) << "the unpacked tree differs";
    }
}

/// Makes an archive of `tree`, unpacks it and compares the trees, for both kinds of archive.
Prediction expectRoundTrip(const Tree& tree) {
    const auto directory = makeMemoryDir();
    const Prediction prediction = predict(tree);
    writeTree(*directory / "source", tree);
    for (const Container container : containers) {
        SCOPED_TRACE(nameOf(container));
        const fs::path archive = *directory / nameOf(container);
        const bool made = makeAsPredicted(container, *directory / "source", archive, prediction);
        if (!made) continue;
        if (container == Container::tar) {
            EXPECT_EQ(fs::file_size(archive), tarSize(tree));
        }
        unpackAsPredicted(container, archive, archive.native() + ".d", tree, prediction);
    }
    return prediction;
}

std::string describe(std::uint64_t seed, const Tree& tree) {
    std::string text = "seed " + std::to_string(seed);
    for (const auto& [name, content] : tree) {
        text += "\n  " + std::to_string(content.size()) + " bytes in " + shown(name);
    }
    return text;
}

}  // namespace

TEST(RoundTrip, FiveHundredRandomTreesComeBackOrAreRefusedAsPredicted) {
    int tooLong = 0;
    int unsafe = 0;
    int intact = 0;
    for (std::uint64_t seed = 1; seed <= 500 && !HasFailure(); ++seed) {
        Random random(seed);
        const Tree tree = randomTree(random);
        SCOPED_TRACE(describe(seed, tree));
        const Prediction prediction = expectRoundTrip(tree);
        ++(prediction.makeMessage ? tooLong : prediction.unpackMessage ? unsafe : intact);
    }
    // Each result must occur often enough in the sample.
    EXPECT_GE(tooLong, 50);
    EXPECT_GE(unsafe, 25);
    EXPECT_GE(intact, 300);
}

TEST(RoundTrip, NamesWithOneSlashAroundBothFieldWidths) {
    for (const std::size_t before : {1U, 54U, 55U, 99U, 100U, 154U, 155U, 156U}) {
        for (const std::size_t after : {1U, 44U, 45U, 98U, 99U, 100U, 101U}) {
            SCOPED_TRACE(std::to_string(before) + " bytes, slash, " + std::to_string(after));
            expectRoundTrip({{std::string(before, 'd') + "/" + std::string(after, 'f'), "x"}});
        }
    }
}

TEST(RoundTrip, NamesWithoutSlashAroundTheFieldWidth) {
    for (const std::size_t length : {1U, 99U, 100U, 101U, 255U}) {
        SCOPED_TRACE(std::to_string(length) + " bytes");
        expectRoundTrip({{std::string(length, 'f'), "x"}});
    }
}

TEST(RoundTrip, EveryByteOfANameAndOfContentComesBack) {
    Tree tree;
    std::string everyByte;
    for (int value = 0; value < 256; ++value) {
        const char byte = static_cast<char>(value);
        everyByte += byte;
        if (std::string_view("\0/:\\", 4).find(byte) != std::string_view::npos) continue;
        tree[std::string("before") + byte + "after"] = everyByte;
        tree[std::string("at end") + byte] = everyByte;
        if (byte != '.') tree[std::string(1, byte)] = everyByte;
    }
    ASSERT_EQ(tree.size(), 755U);
    expectRoundTrip(tree);
}

TEST(RoundTrip, ColonAndBackslashAreKeptWhenMakingAndRefusedWhenUnpacking) {
    for (const char* name : {"a:b", "a\\b", ":", "\\", "d:/f", "d\\/f"}) {
        SCOPED_TRACE(name);
        const Prediction prediction = expectRoundTrip({{name, "x"}, {"harmless", "y"}});
        EXPECT_EQ(prediction.unpackMessage, "Unsafe TAR entry name");
    }
}

TEST(RoundTrip, StreamThatFillsItsLastGzipBlockExactly) {
    Random random(1);
    const Tree tree{{"file", random.bytes(33553920 - 512 - 1024)}};
    ASSERT_EQ(tarSize(tree), 33553920U);  // 512 full blocks of 65535 bytes
    const TempDir directory;
    writeTree(directory / "source", tree);

    ASSERT_TRUE(makeAsPredicted(Container::tgz, directory / "source", directory / "tgz", {}));
    EXPECT_EQ(fs::file_size(directory / "tgz"), 33553920U + 512 * 5 + 18);
    unpackAsPredicted(Container::tgz, directory / "tgz", directory / "tgz.d", tree, {});
}

TEST(RoundTrip, TreeWithoutFilesComesBackAsAnEmptyDirectory) {
    expectRoundTrip({});
}

TEST(RoundTrip, ArchiveOfAnUnpackedArchiveIsTheSameArchive) {
    const Tree tree{{"a-b/c", "1"}, {"a.txt", std::string(513, 'x')}, {"a/b", ""}};
    const TempDir directory;
    writeTree(directory / "source", tree);
    for (const Container container : containers) {
        SCOPED_TRACE(nameOf(container));
        const fs::path first = directory / (std::string("first.") + nameOf(container));
        const fs::path second = directory / (std::string("second.") + nameOf(container));
        ASSERT_TRUE(makeAsPredicted(container, directory / "source", first, {}));
        unpackAsPredicted(container, first, first.native() + ".d", tree, {});
        ASSERT_TRUE(makeAsPredicted(container, first.native() + ".d/out", second, {}));
        EXPECT_TRUE(readFile(first) == readFile(second));
    }
}

}  // namespace vesk::testing
