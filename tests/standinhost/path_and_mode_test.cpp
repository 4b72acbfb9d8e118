// SPDX-License-Identifier: MIT
// The conversion of path strings and the meaning of mode handles.
#include <gtest/gtest.h>

#include <string>

#include "module/host/host_runtime.h"
#include "standinhost/standin_host.h"

namespace {

TEST(RuntimeFsPath, KeepsTheStringAsItIs) {
    struct Row {
        const char* text;
        bool absolute;
    };
    const Row rows[] = {
        {"a", false},          {"a/b/c", false},    {"./a", false},  {"../a", false},
        {"a/../b", false},     {"a//b", false},     {"a/", false},   {".", false},
        {"/", true},           {"/a/b", true},      {"//a", true},   {"a\\b", false},
        {"C:/a", false},       {" a ", false},      {"a\nb", false}, {"~/a", false},
        {"\xC3\xA9/x", false}, {"\xFF\xFE", false}, {"%20", false},  {"*?", false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        const std::filesystem::path path = Vesk_runtimeFsPath(row.text);
        EXPECT_EQ(path.native(), row.text);
        EXPECT_EQ(path.is_absolute(), row.absolute);
    }
}

TEST(Mode, SaysWhetherToOverwrite) {
    vesk::standin::Mode keep{false};
    vesk::standin::Mode overwrite{true};
    EXPECT_FALSE(vesk::runtime::archives::modeIsOverwrite(nullptr));
    EXPECT_FALSE(vesk::runtime::archives::modeIsOverwrite(&keep));
    EXPECT_TRUE(vesk::runtime::archives::modeIsOverwrite(&overwrite));
}

}  // namespace
