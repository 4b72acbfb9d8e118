// SPDX-License-Identifier: MIT
// The steps of an extraction, for the trials of staging and commit.
#include "hostcheck/staged_tree.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "hostcheck/wording.h"

namespace vesk::hostcheck {

namespace {

namespace fs = std::filesystem;

void writeFile(const fs::path& path, const std::string& content) {
    fs::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    if (!file.flush()) throw std::runtime_error("cannot write " + inQuotes(path.native()));
}

std::string readFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string manyBytes() {
    std::string bytes;
    for (unsigned i = 0; i < 300000; ++i)
        bytes += static_cast<char>(i * 7 % 251);
    return bytes;
}

Tree treeElsewhere() {
    return {{"directory/", ""}, {"directory/file", "kept"}, {"file", "kept"}};
}

}  // namespace

fs::path prepare(const Trial& trial, const fs::path& destination, bool overwrite) {
    fs::path staging;
    std::string error;
    const bool prepared = trial.runtime.prepareStaging(destination, overwrite, staging, error);
    expect(prepared, "a staging directory", "false with the text " + inQuotes(error));
    return staging;
}

Answer commit(const Trial& trial, const fs::path& staging, const fs::path& destination,
              std::string error) {
    const bool committed = trial.runtime.commitStaging(staging, destination, error);
    return {committed, error};
}

void commitSuccessfully(const Trial& trial, const fs::path& staging, const fs::path& destination) {
    const Answer answer = commit(trial, staging, destination);
    expect(answer.succeeded, "a commit", "false with the text " + inQuotes(answer.error));
}

Tree sampleTree() {
    return {{"a.txt", "alpha"},
            {".hidden", "hidden"},
            {"empty", ""},
            {"hollow/", ""},
            {"sub/", ""},
            {"sub/many", manyBytes()},
            {"sub/with space/", ""},
            {"sub/with space/deeper/", ""},
            {"sub/with space/deeper/-caf\xC3\xA9", "deep"}};
}

void fill(const fs::path& root, const Tree& tree) {
    const fs::path normal = root.lexically_normal();
    for (const auto& [name, content] : tree) {
        if (name.ends_with('/')) {
            fs::create_directories(normal / name);
        } else {
            writeFile(normal / name, content);
        }
    }
}

Tree oneFile() {
    return {{"a.txt", "alpha"}};
}

void extractOneFile(const Trial& trial, const fs::path& destination, bool overwrite) {
    const fs::path staging = prepare(trial, destination, overwrite);
    fill(staging, oneFile());
    commitSuccessfully(trial, staging, destination);
}

void makeVanish(const fs::path& staging) {
    fs::remove_all(fs::canonical(staging));
}

Tree readTree(const fs::path& root) {
    Tree tree;
    std::error_code error;
    for (fs::recursive_directory_iterator it(root, error), end; it != end; ++it) {
        const std::string name = it->path().lexically_relative(root).native();
        if (it->is_directory()) {
            tree[name + "/"];
        } else {
            tree[name] = readFile(it->path());
        }
    }
    return tree;
}

void expectTree(const Tree& tree, const fs::path& root) {
    const std::string came = difference(tree, readTree(root));
    expect(came.empty(), "all that was extracted and nothing else", came);
}

Tree neighbours() {
    return {{"neighbour", "one"},     {"neighbours/", ""},       {"neighbours/one", "two"},
            {"out.old/", ""},         {"out.old/file", "three"}, {"out.bak/", ""},
            {"out.bak/file", "four"}, {".out", "five"},          {"out~", "six"}};
}

void linkElsewhere(const fs::path& root, const fs::path& elsewhere) {
    fill(elsewhere, treeElsewhere());
    for (const fs::path& directory : {root, root / "deeper"}) {
        fs::create_directories(directory);
        fs::create_directory_symlink(elsewhere / "directory", directory / "to a directory");
        fs::create_symlink(elsewhere / "file", directory / "to a file");
    }
}

void expectElsewhere(const fs::path& elsewhere) {
    const std::string came = difference(treeElsewhere(), readTree(elsewhere));
    expect(came.empty(), "all that symbolic links lead to as it was", came);
}

std::string difference(const Tree& tree, const Tree& came) {
    for (const auto& [name, content] : tree) {
        const auto found = came.find(name);
        if (found == came.end()) return "no " + inQuotes(name);
        if (found->second != content) return "other content in " + inQuotes(name);
    }
    for (const auto& [name, content] : came)
        if (!tree.contains(name)) return inQuotes(name) + " in addition";
    return "";
}

std::string namesIn(const fs::path& directory) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory))
        names.insert(inQuotes(entry.path().filename().native()));
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text.empty() ? "nothing" : text;
}

}  // namespace vesk::hostcheck
