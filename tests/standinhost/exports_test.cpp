// SPDX-License-Identifier: MIT
// The symbols that the library exports, as the system's nm lists them.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <set>
#include <string>

namespace {

/// Returns the names of the library's defined dynamic symbols, without their arguments.
std::set<std::string> exportedNames() {
    const std::string command =
        std::string("nm -D -C --defined-only -f posix '") + VESK_STANDIN_HOST_PATH + "'";
    const std::unique_ptr<FILE, int (*)(FILE*)> lines(popen(command.c_str(), "r"), pclose);
    std::set<std::string> names;
    char line[4096];
    while (lines && std::fgets(line, sizeof line, lines.get()) != nullptr) {
        const std::string text = line;
        names.insert(text.substr(0, text.find_first_of("([ ")));
    }
    return names;
}

TEST(Exports, AreTheRuntimeFunctionsAndTheApiForHosts) {
    const std::set<std::string> expected = {
        "Vesk_hasPendingError",
        "Vesk_raise",
        "Vesk_runtimeFsPath",
        "vesk::runtime::archives::commitExtractionStaging",
        "vesk::runtime::archives::modeIsOverwrite",
        "vesk::runtime::archives::prepareExtractionStaging",
        "vesk::runtime::archives::removeExtractionTree",
        "vesk::runtime::zip::crc32Update",
        "vesk::runtime::zip::inflateRaw",
        "vesk::standin::abandonStaging",
        "vesk::standin::observeCalls",
        "vesk::standin::observeDecoding",
        "vesk::standin::takeLeftover",
        "vesk::standin::takePendingError",
    };
    EXPECT_EQ(exportedNames(), expected);
}

}  // namespace
