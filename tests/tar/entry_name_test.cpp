// SPDX-License-Identifier: MIT
// Tests of entry names: how they are read from a header, and which of them are safe to extract.
#include "tar/entry_name.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/recording_host.h"
#include "tests/support/tar_bytes.h"

namespace {

using namespace std::literals;
using namespace vesk::io::archives;
using namespace vesk::testing;

std::string nameIn(std::string_view name, std::string_view prefix) {
    const std::string block = patched(tarHeader(name), 345, prefix);
    std::array<std::uint8_t, 512> bytes;
    std::copy(block.begin(), block.end(), bytes.begin());
    return tarReadEntryName(bytes);
}

TEST(EntryName, JoinsPrefixAndNameUpToTheirNulAndDropsTrailingSlashes) {
    const std::string name100(100, 'n');
    const std::string prefix155(155, 'p');
    struct Row {
        std::string name;
        std::string prefix;
        std::string entryName;
    };
    const Row rows[] = {
        {"n", "", "n"},
        {"n", "p", "p/n"},
        {"a/b", "p/q", "p/q/a/b"},
        {"n\0junk"s, "", "n"},
        {"n", "p\0junk"s, "p/n"},
        {"n", "\0junk"s, "n"},
        {"\0junk"s, "", ""},
        {name100, "", name100},
        {name100, prefix155, prefix155 + "/" + name100},
        {"n", prefix155, prefix155 + "/n"},
        {"", "p", "p"},
        {"", "", ""},
        {"dir/", "", "dir"},
        {"dir///", "", "dir"},
        {"a//b", "", "a//b"},
        {"/", "p", "p"},
        {"///", "", ""},
        {"/", "/", ""},
        {"n", "p/", "p//n"},
        {"n", "/", "//n"},
        {"/n", "", "/n"},
        {"\xFF\x80\xE4", "", "\xFF\x80\xE4"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(nameIn(row.name, row.prefix), row.entryName) << row.name << ", " << row.prefix;
    }
}

// The prefix counts for every variant of the format: magic and version may hold anything.
TEST(EntryName, UsesThePrefixWithoutTheMagic) {
    const std::string block = patched(patched(tarHeader("n"), 345, "p"), 257, "GNUtar  "sv);
    std::array<std::uint8_t, 512> bytes;
    std::copy(block.begin(), block.end(), bytes.begin());
    EXPECT_EQ(tarReadEntryName(bytes), "p/n");
}

struct Judgement {
    bool safe;
    std::vector<std::string> calls;
};

Judgement judge(const std::string& entryName) {
    RecordingHost host;
    const bool safe = tarIsSafeEntryName(entryName);
    return {safe, host.calls};
}

// The promise includes that the name is converted exactly once here: the second conversion makes
// the target.
TEST(EntryName, AcceptsWhatStaysBelowTheRoot) {
    const char* const names[] = {
        "a",      "a/b",      "a//b", "./a",         "././a",    "a/./b",   "a/../b",  "...", "..a",
        "a..",    "a/..b",    ".a",   "a/b/../../c", "a/b/../c", " ",       "\n",      "~",   "-",
        "a\xFFz", "\xC3\xA4", "a;b",  "*",           "a b",      "....//a", "a/.../b",
    };
    for (const char* const name : names) {
        const Judgement judgement = judge(name);
        EXPECT_TRUE(judgement.safe) << name;
        const std::vector<std::string> converted = {"Vesk_runtimeFsPath("s + name + ")"};
        EXPECT_EQ(judgement.calls, converted) << name;
    }
}

TEST(EntryName, RefusesByTheTextAloneBeforeAnyConversion) {
    const std::string names[] = {
        "",    "/",     "/etc/x", "//a", "/..",   "a\\b",     "\\",    "..\\x",
        "C:x", "C:\\x", ":",      "a:",  "a/b:c", "a/../b:c", "a\0b"s, "\0"s,
    };
    for (const std::string& name : names) {
        const Judgement judgement = judge(name);
        EXPECT_FALSE(judgement.safe) << name;
        EXPECT_EQ(judgement.calls, std::vector<std::string>()) << name;
    }
}

// Two rules refuse the name ".".
TEST(EntryName, RefusesTheRootAndWhatLeavesItOnceNormalised) {
    const char* const names[] = {
        ".",
        "./.",
        "a/..",
        "a/b/../..",
        "./a/..",  // the root itself
        "..",
        "../evil",
        "./..",
        "a/../..",
        "a/../../x",
        "../..",
        "../../x",
        "../a/x",
        "..//x",
        "a/b/../../../x",  // leaves it
        "a/.",
        "a/./.",
        "a/b/..",
        "a/b/../.",
        "./a/.",  // ends in a separator
    };
    for (const char* const name : names) {
        const Judgement judgement = judge(name);
        EXPECT_FALSE(judgement.safe) << name;
        const std::vector<std::string> converted = {"Vesk_runtimeFsPath("s + name + ")"};
        EXPECT_EQ(judgement.calls, converted) << name;
    }
}

// A text that does not begin with "/" gives a path without a root, unless the runtime's conversion
// adds one.
TEST(EntryName, RefusesARootThatTheConversionAdds) {
    RecordingHost host;
    for (const char* const path : {"/etc/x", "//etc/x", "/"}) {
        host.runtimeFsPath = path;
        EXPECT_FALSE(tarIsSafeEntryName("etc/x")) << path;
    }
    host.runtimeFsPath = "etc/x";
    EXPECT_TRUE(tarIsSafeEntryName("etc/x"));
}

}  // namespace
