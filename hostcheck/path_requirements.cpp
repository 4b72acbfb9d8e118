// SPDX-License-Identifier: MIT
// The requirements for Vesk_runtimeFsPath.
#include <algorithm>
#include <array>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "hostcheck/requirement.h"
#include "hostcheck/wording.h"

namespace vesk::hostcheck {

namespace {

using Components = std::vector<std::string>;

struct Row {
    std::string text;
    Components components;
};

std::string shown(const Components& components) {
    std::string text;
    for (const std::string& component : components)
        text += (text.empty() ? "" : ", ") + inQuotes(component);
    return text.empty() ? "no components" : text;
}

Components componentsOf(const std::filesystem::path& path) {
    return {path.begin(), path.end()};
}

void expectConverted(const Trial& trial, std::initializer_list<Row> rows) {
    for (const Row& row : rows) {
        const std::filesystem::path path = trial.runtime.fsPath(row.text.c_str());
        const Components came = componentsOf(path);
        expect(path.is_relative() && came == row.components,
               "a relative path of " + shown(row.components) + " from " + inQuotes(row.text),
               shown(came));
    }
}

void keepsRelativeTextRelative(const Trial& trial) {
    const std::string longest(255, 'n');
    std::string deep = "d";
    for (int i = 1; i < 100; ++i)
        deep += "/d";
    expectConverted(trial, {{"a", {"a"}},
                            {"photos/2026/summer.jpg", {"photos", "2026", "summer.jpg"}},
                            {longest + "/" + longest, {longest, longest}},
                            {deep, Components(100, "d")}});
}

void keepsSpacesAndPunctuation(const Trial& trial) {
    expectConverted(trial, {{" a", {" a"}},
                            {"a /b  c", {"a ", "b  c"}},
                            {"tab\tline\nbell\a", {"tab\tline\nbell\a"}},
                            {"C:\\dir", {"C:\\dir"}},
                            {"a*?b/~/$HOME/%20", {"a*?b", "~", "$HOME", "%20"}}});
}

void keepsOtherBytes(const Trial& trial) {
    expectConverted(trial, {{"caf\xC3\xA9", {"caf\xC3\xA9"}},
                            {"cafe\xCC\x81", {"cafe\xCC\x81"}},
                            {"caf\xE9/\x80\xFF", {"caf\xE9", "\x80\xFF"}}});
}

void keepsDots(const Trial& trial) {
    expectConverted(trial, {{".", {"."}},
                            {"..", {".."}},
                            {"../a", {"..", "a"}},
                            {"./a/../b/.", {".", "a", "..", "b", "."}},
                            {".hidden/a./...", {".hidden", "a.", "..."}}});
}

void keepsAbsoluteText(const Trial& trial) {
    const std::string came = trial.runtime.fsPath("/photos/summer.jpg").native();
    expect(came == "/photos/summer.jpg", "\"/photos/summer.jpg\"", inQuotes(came));
}

constexpr std::array<Requirement, 5> requirements = {{
    {Weight::requirement, "Vesk_runtimeFsPath", "keeps a relative text relative, with its names",
     keepsRelativeTextRelative},
    {Weight::requirement, "Vesk_runtimeFsPath", "keeps spaces, control characters and punctuation",
     keepsSpacesAndPunctuation},
    {Weight::requirement, "Vesk_runtimeFsPath", "keeps bytes beyond ASCII, UTF-8 or not",
     keepsOtherBytes},
    {Weight::requirement, "Vesk_runtimeFsPath", "keeps dots", keepsDots},
    {Weight::advice, "Vesk_runtimeFsPath", "keeps an absolute text as it is", keepsAbsoluteText},
}};

}  // namespace

std::span<const Requirement> pathRequirements() {
    return requirements;
}

}  // namespace vesk::hostcheck
