// SPDX-License-Identifier: MIT
// Walking a source with the module's own kind of iterator, over the same files.
#include "explanation/source_walk.h"

#include <sys/stat.h>

#include <filesystem>
#include <system_error>

#include "explanation/entry_kind.h"
#include "explanation/path_state.h"
#include "tar/entry_collection.h"
#include "tar/ustar_header.h"

namespace vesk::explanation {

namespace {

namespace fs = std::filesystem;
using namespace vesk::io::archives;

constexpr std::uint64_t largestFile = 0xFFFFFFFF;

void keepFirst(SourceFile& first, const SourceFile& file) {
    if (first.path.empty() || file.name < first.name) first = file;
}

void meet(SourceWalk& walk, const std::string& path, const std::string& name) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return;
    const SourceFile file{path, name, static_cast<std::uint64_t>(status.st_size)};
    if (file.size > largestFile) keepFirst(walk.tooLarge, file);
    if (file.size == 0 && isKernels(path)) keepFirst(walk.kernels, file);
    if (!fitsHeader(name)) {
        keepFirst(walk.tooLong, file);
        ++walk.tooLongCount;
    }
    walk.archiveSize += tarBlockSize + file.size + tarPaddingAfter(file.size);
}

/// The part of the path below the source.
std::string nameBelow(const fs::path& source, const fs::path& path) {
    const std::string rest = path.native().substr(source.native().size());
    return zipNormalizeEntryName(rest.substr(rest.find_first_not_of('/')));
}

void walkDirectory(SourceWalk& walk, const fs::path& source) {
    std::error_code error;
    fs::path reached = source;
    fs::recursive_directory_iterator place(source, error);
    while (!error && place != fs::recursive_directory_iterator()) {
        reached = place->path();
        const bool isStored = place->is_regular_file(error);
        if (error) break;
        if (isStored) meet(walk, reached.native(), nameBelow(source, reached));
        // Enters a directory here, so that an error is attributed to the path that was reached.
        place.increment(error);
    }
    if (error) walk.stopped = {reached.native(), error.value()};
}

}  // namespace

SourceWalk walkSource(const std::string& source) {
    SourceWalk walk;
    walk.archiveSize = tarEndMarkerSize;
    std::error_code error;
    if (fs::is_directory(source, error)) {
        walkDirectory(walk, source);
    } else {
        meet(walk, source, fs::path(source).filename());
    }
    return walk;
}

}  // namespace vesk::explanation
