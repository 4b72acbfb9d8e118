// SPDX-License-Identifier: MIT
// Walking a source for its regular files.
#include "tar/entry_collection.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <system_error>
#include <utility>

#include "module/host/failure.h"

namespace vesk::io::archives {

namespace {

namespace fs = std::filesystem;

std::string withSingleSeparators(std::string_view text) {
    if (text.find("//") == std::string_view::npos) return std::string(text);
    std::string name;
    std::unique_copy(text.begin(), text.end(), std::back_inserter(name),
                     [](char left, char right) { return left == '/' && right == '/'; });
    return name;
}

// Every path of the walk begins with the text of `source`. The rest is relative to `source`.
std::string nameBelow(const fs::path& source, const fs::path& path) {
    std::string_view relative = path.native();
    relative.remove_prefix(source.native().size());
    if (relative.starts_with('/')) relative.remove_prefix(1);
    return withSingleSeparators(relative);
}

// Appends the files that the walk finds, until its end or until `error` is set.
void walkDirectory(const fs::path& source, std::vector<ArchiveEntryInfo>& entries,
                   std::error_code& error) {
    fs::recursive_directory_iterator position(source, error);
    while (!error && position != fs::recursive_directory_iterator()) {
        const bool regular = position->is_regular_file(error);
        if (error) return;

        if (regular) {
            const fs::path& path = position->path();
            std::string name = nameBelow(source, path);
            // The name is never empty, since the walk appends a file's name. An entry with an empty
            // name could not be extracted.
            if (!name.empty()) entries.push_back({path.native(), std::move(name)});
        }
        position.increment(error);
    }
}

}  // namespace

std::vector<ArchiveEntryInfo> collectArchiveEntries(const fs::path& source) {
    std::vector<ArchiveEntryInfo> entries;
    std::error_code error;
    if (!fs::exists(fs::status(source, error))) {
        raiseFailure("Archive source does not exist");
        return {};
    }

    if (fs::is_regular_file(source, error) && !error) {
        entries.push_back({source.native(), zipNormalizeEntryName(source.filename())});
    } else if (fs::is_directory(source, error) && !error) {
        walkDirectory(source, entries, error);
        if (error) {
            raiseFailure("Cannot enumerate archive source");
            return {};
        }
    } else {
        raiseFailure("Archive source must be a file or directory");
        return {};
    }

    std::sort(entries.begin(), entries.end(),
              [](const ArchiveEntryInfo& left, const ArchiveEntryInfo& right) {
                  return left.entryName < right.entryName;
              });
    return entries;
}

std::string zipNormalizeEntryName(const fs::path& path) {
    return withSingleSeparators(path.native());
}

}  // namespace vesk::io::archives
