// SPDX-License-Identifier: MIT
// Helpers of the staging tests: the calls with their results, and what is in a directory.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "module/host/host_runtime.h"
#include "tests/support/temp_dir.h"

namespace vesk::testing {

/// The result of a staging function. `error` held "before" when it was called.
struct StagingResult {
    bool ok;
    std::filesystem::path staging;
    std::string error;
};

inline StagingResult prepare(const std::filesystem::path& destination, bool overwrite) {
    StagingResult result{false, {}, "before"};
    result.ok = runtime::archives::prepareExtractionStaging(destination, overwrite, result.staging,
                                                            result.error);
    return result;
}

inline StagingResult commit(const std::filesystem::path& staging,
                            const std::filesystem::path& destination) {
    StagingResult result{false, staging, "before"};
    result.ok = runtime::archives::commitExtractionStaging(staging, destination, result.error);
    return result;
}

/// Prepares staging and puts the file "new" into it; throws when it cannot be prepared.
inline std::filesystem::path stageNewTree(const std::filesystem::path& destination,
                                          bool overwrite) {
    const StagingResult prepared = prepare(destination, overwrite);
    if (!prepared.ok) throw std::runtime_error("not prepared: " + prepared.error);
    writeFile(prepared.staging / "new", "new");
    return prepared.staging;
}

/// Returns the directory beside the destination that holds the tree `staging`.
inline std::filesystem::path directoryOf(const std::filesystem::path& staging) {
    return std::filesystem::canonical(staging).parent_path();
}

/// Returns every name below `directory` with the file's content, a link's target after "-> ", "/"
/// for a directory and "?" for anything else.
inline std::map<std::string, std::string> treeAt(const std::filesystem::path& directory) {
    namespace fs = std::filesystem;
    std::map<std::string, std::string> tree;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory)) {
        std::string content = "?";
        if (entry.is_symlink()) {
            content = "-> " + fs::read_symlink(entry.path()).native();
        } else if (entry.is_directory()) {
            content = "/";
        } else if (entry.is_regular_file()) {
            content = readFile(entry.path());
        }
        tree[entry.path().lexically_relative(directory).native()] = content;
    }
    return tree;
}

using Tree = std::map<std::string, std::string>;

/// What can be at the destination; makeAt makes it. `link...` point at something beside it.
enum class Kind {
    nothing,
    file,
    fifo,
    emptyDirectory,
    tree,
    linkToTree,
    linkToFile,
    linkToFifo,
    dangling,
    throughFile,
    loop
};

struct KindRow {
    const char* name;
    Kind kind;
};

/// What may be replaced with permission only.
inline constexpr KindRow replaceableKinds[] = {
    {"file", Kind::file},
    {"tree", Kind::tree},
    {"link to a tree", Kind::linkToTree},
    {"link to a file", Kind::linkToFile},
};

/// What may never be replaced.
inline constexpr KindRow irreplaceableKinds[] = {
    {"fifo", Kind::fifo},
    {"dangling link", Kind::dangling},
    {"link through a file", Kind::throughFile},
    {"link to itself", Kind::loop},
    {"link to a fifo", Kind::linkToFifo},
};

/// Every kind but nothing and an empty directory, which is treated like nothing.
inline std::vector<KindRow> existingKinds() {
    std::vector<KindRow> rows(std::begin(replaceableKinds), std::end(replaceableKinds));
    rows.insert(rows.end(), std::begin(irreplaceableKinds), std::end(irreplaceableKinds));
    return rows;
}

/// Makes something of the kind at `path`. The target of a link is beside it, named "pointed".
inline void makeAt(const std::filesystem::path& path, Kind kind) {
    namespace fs = std::filesystem;
    const fs::path pointed = path.parent_path() / "pointed";
    switch (kind) {
        case Kind::nothing:
            return;
        case Kind::file:
            return writeFile(path, "old");
        case Kind::fifo:
            if (mkfifo(path.c_str(), 0600) != 0) throw std::runtime_error("mkfifo failed");
            return;
        case Kind::emptyDirectory:
            fs::create_directory(path);
            return;
        case Kind::tree:
            return writeFile(path / "sub" / "old", "old");
        case Kind::linkToTree:
            writeFile(pointed / "sub" / "old", "old");
            return fs::create_symlink("pointed", path);
        case Kind::linkToFile:
            writeFile(pointed, "old");
            return fs::create_symlink("pointed", path);
        case Kind::linkToFifo:
            makeAt(pointed, Kind::fifo);
            return fs::create_symlink("pointed", path);
        case Kind::dangling:
            return fs::create_symlink("pointed", path);
        case Kind::throughFile:
            writeFile(pointed, "kept");
            return fs::create_symlink("pointed/x", path);
        case Kind::loop:
            return fs::create_symlink(path.filename(), path);
    }
}

/// Returns the content of the directory that held a replaceable object of the kind, named "out",
/// after the tree of stageNewTree has replaced it.
inline Tree treeAfterReplacing(Kind kind) {
    if (kind == Kind::linkToTree || kind == Kind::linkToFile)
        return {{"out", "-> pointed"}, {"pointed", "/"}, {"pointed/new", "new"}};
    return {{"out", "/"}, {"out/new", "new"}};
}

}  // namespace vesk::testing
