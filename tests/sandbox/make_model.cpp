// SPDX-License-Identifier: MIT
// The rules about the archive's path, combined with those about the source.
#include "tests/sandbox/make_model.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include "tests/sandbox/source_model.h"

namespace vesk::testing {

namespace {

/// Longer paths may become too long with the name of a temporary file.
constexpr std::size_t surelyShort = PATH_MAX - 600;

bool asksForDirectory(const std::string& path) {
    return path.ends_with('/') || path.ends_with("/.");
}

/// Tells whether a directory protects the names of other users: it may also protect their files
/// from being written.
bool isProtected(const MakeScene& scene, const std::string& directory) {
    const auto at = scene.before.find(directory);
    return at != scene.before.end() && (at->second.mode & S_ISVTX) != 0 &&
           scene.archive.there->st_uid != scene.user.uid;
}

Prediction predictOverwriting(const MakeScene& scene) {
    const KernelPlace& archive = scene.archive;
    if (!S_ISREG(archive.there->st_mode)) return {Ending::either, "no regular file at the archive"};
    const bool mayWrite = access(archive.path.c_str(), W_OK) == 0;
    if (isProtected(scene, archive.directory.substr(
                               std::min(archive.directory.size(), scene.top.size() + 1))))
        return {Ending::either, "a file of another in a sticky directory"};
    if (mayWrite && archive.mayChange) return {Ending::success, "an archive to be overwritten"};
    if (archive.isReachable && !mayWrite && !archive.mayChange)
        return {Ending::failure, "an archive that may neither be written nor replaced"};
    return {Ending::either, "an archive that may only be written or only replaced"};
}

Prediction predictArchive(const MakeCase& makeCase, const MakeScene& scene) {
    const KernelPlace& archive = scene.archive;
    if (archive.endDangles && archive.error == ENOENT)
        return {Ending::either, "a link to the archive that leads nowhere"};
    if (archive.error != 0) return {Ending::failure, "an archive's path that the kernel refuses"};
    if (archive.linkOfAnother) return {Ending::either, "a link of another in a sticky directory"};
    if (makeCase.archive.size() >= surelyShort || !archive.passedMissing.empty())
        return {Ending::either, "an archive's path that is long or by way of missing names"};
    if (archive.there) {
        if (!makeCase.overwrite) return {Ending::failure, "something there, without overwriting"};
        if (S_ISDIR(archive.there->st_mode)) return {Ending::failure, "a directory at the archive"};
        return predictOverwriting(scene);
    }
    if (asksForDirectory(makeCase.archive))
        return {Ending::failure, "a new archive's path that asks for a directory"};
    if (!archive.mayChange)
        return {Ending::failure, "a new archive in a directory that may not be changed"};
    return {Ending::success, "a new archive"};
}

bool isInSource(const MakeScene& scene) {
    // Only a regular file is stored. What is written to a FIFO in the source cannot come back.
    return scene.source.there && scene.archive.there && S_ISREG(scene.archive.there->st_mode) &&
           isAtOrBelow(scene.archive.path, scene.source.path);
}

bool readsArchive(const MakeScene& scene, const SourceFiles& source) {
    return std::any_of(source.paths.begin(), source.paths.end(), [&](const auto& file) {
        return scene.top + "/" + file.second == scene.archive.path;
    });
}

}  // namespace

MakePrediction predictMake(const MakeCase& makeCase, const MakeScene& scene) {
    const Prediction archive = predictArchive(makeCase, scene);
    const SourceFiles source =
        filesOfSource(makeCase.source, scene.source, scene.before, scene.top, scene.user);
    if (archive.ending == Ending::failure) return {archive, {}};
    if (source.ending == Ending::failure) {
        // The archive's parents are made first, and may be the missing part of the source.
        const bool makesDirectories =
            scene.archive.missing.size() > 1 || !scene.archive.passedMissing.empty();
        const bool isMended = source.isForWantOfSomething && makesDirectories;
        return {{isMended ? Ending::either : Ending::failure, source.reason}, source.files};
    }
    if (isInSource(scene))
        return {{Ending::failure, "an archive that is in its source"},
                {},
                archive.ending == Ending::success && source.ending == Ending::success};
    if (readsArchive(scene, source) || source.ending == Ending::either)
        return {{Ending::either, "a source of which not all is certain"}, source.files};
    return {archive, source.files};
}

}  // namespace vesk::testing
