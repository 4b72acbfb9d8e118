// SPDX-License-Identifier: MIT
// The rules of unpacking, from the attributes of the destination and its directory.
#include "tests/sandbox/unpack_model.h"

#include <algorithm>
#include <climits>

namespace vesk::testing {

namespace {

/// Longer paths may become too long with the name of a staging directory.
constexpr std::size_t surelyShort = PATH_MAX - 600;

/// In a sticky directory, names of other users cannot be removed.
bool isProtectedName(const UnpackScene& scene) {
    if (scene.user.isRoot()) return false;
    const auto directory = scene.before.find(fromTop(scene, scene.place.directory));
    if (directory == scene.before.end() || (directory->second.mode & S_ISVTX) == 0) return false;
    return scene.place.there->st_uid != scene.user.uid && directory->second.uid != scene.user.uid;
}

Prediction predictNew(const UnpackScene& scene) {
    if (!scene.place.mayChange)
        return {Ending::failure, "a new name in a directory that may not be changed"};
    return {Ending::success,
            scene.place.missing.size() > 1 ? "a new name with missing parents" : "a new name"};
}

/// For a destination whose kind may be replaced.
Prediction predictReplacing(const UnpackCase& unpackCase, const UnpackScene& scene,
                            const std::string& path) {
    const KernelPlace& place = scene.place;
    const std::string kind = S_ISDIR(place.there->st_mode) ? "a directory" : "a file";
    if (!place.isReachable) return {Ending::either, kind + " that only its user reaches"};
    if (!place.mayChange) return {Ending::failure, kind + " in one that may not be changed"};
    if (isProtectedName(scene)) return {Ending::failure, kind + " of another in a sticky one"};
    if (mayResistDeletion(scene.before, path, scene.user))
        return {Ending::either, kind + " that may not be deleted whole"};
    if (!unpackCase.overwrite && place.endsInLink)
        return {Ending::either, "a link to an empty directory, without overwriting"};
    if (!unpackCase.overwrite) return {Ending::success, "an empty directory, without overwriting"};
    return {Ending::success, kind + (place.endsInLink ? " by a link" : "") + ", to be replaced"};
}

Prediction predictExisting(const UnpackCase& unpackCase, const UnpackScene& scene) {
    const std::string path = fromTop(scene, scene.place.path);
    if (!unpackCase.overwrite && !isEmptyDirectory(scene.before, path))
        return {Ending::failure, "something there, without overwriting",
                "Destination already exists"};
    const mode_t type = scene.place.there->st_mode & S_IFMT;
    if (type != S_IFDIR && type != S_IFREG)
        return {Ending::failure, "neither a directory nor a file",
                "Destination cannot be replaced"};
    return predictReplacing(unpackCase, scene, path);
}

/// For a valid archive.
Prediction predictPlace(const UnpackCase& unpackCase, const UnpackScene& scene) {
    const KernelPlace& place = scene.place;
    if (place.linkOfAnother) return {Ending::failure, "a link of another in a sticky directory"};
    if (place.endDangles && unpackCase.destination.size() >= PATH_MAX)
        return {Ending::failure, "a link that leads nowhere, by a path that is too long"};
    if (place.endDangles)
        return {
            Ending::failure, "a link that leads nowhere",
            unpackCase.overwrite ? "Destination cannot be replaced" : "Destination already exists"};
    if (place.error != 0) return {Ending::failure, "a path that the kernel refuses"};
    if (unpackCase.destination.size() >= surelyShort || place.path.size() >= surelyShort)
        return {Ending::either, "a very long path"};
    Prediction prediction = place.there ? predictExisting(unpackCase, scene) : predictNew(scene);
    // The path leads back from missing directories: these may be made, or the path be refused.
    if (!place.passedMissing.empty() && prediction.ending == Ending::success)
        prediction.ending = Ending::either;
    if (!place.passedMissing.empty() || !place.isReachable) prediction.message = "";
    return prediction;
}

Thing made(mode_t type, const UnpackCase& unpackCase, const ActingUser& user) {
    Thing thing;
    thing.mode = type | (S_ISDIR(type) ? 0777U & ~unpackCase.mask : 0666U & ~unpackCase.mask);
    thing.uid = user.uid;
    thing.gid = anyGroup;
    return thing;
}

/// The new directory takes over the permissions of the old one and, if root makes it, the owner.
Thing topDirectory(const UnpackCase& unpackCase, const UnpackScene& scene,
                   const std::string& path) {
    Thing top = made(S_IFDIR, unpackCase, scene.user);
    const auto old = scene.before.find(path);
    if (old == scene.before.end() || !old->second.isDirectory()) return top;
    top.mode = old->second.mode;
    if (!scene.user.isRoot()) return top;
    top.uid = old->second.uid;
    top.gid = old->second.gid;
    return top;
}

}  // namespace

std::string fromTop(const UnpackScene& scene, const std::string& absolute) {
    return absolute.substr(std::min(absolute.size(), scene.top.size() + 1));
}

bool mayResistDeletion(const Snapshot& snapshot, const std::string& path, const ActingUser& user) {
    if (user.isRoot()) return false;
    return std::any_of(snapshot.begin(), snapshot.end(), [&](const auto& entry) {
        const Thing& thing = entry.second;
        return isAtOrBelow(entry.first, path) && thing.isDirectory() &&
               (thing.uid != user.uid || (thing.mode & 0700U) != 0700U);
    });
}

Prediction predictUnpack(const UnpackCase& unpackCase, const UnpackScene& scene) {
    if (unpackCase.archive.isGood()) return predictPlace(unpackCase, scene);
    return {Ending::failure, "a damaged archive"};
}

Snapshot afterUnpack(const UnpackCase& unpackCase, const UnpackScene& scene) {
    const std::string path = fromTop(scene, scene.place.path);
    const Thing top = topDirectory(unpackCase, scene, path);
    Snapshot after = scene.before;
    eraseTree(after, path);
    for (std::string above = parentOf(path); !above.empty(); above = parentOf(above)) {
        if (!after.contains(above)) after[above] = made(S_IFDIR, unpackCase, scene.user);
    }
    after[path] = top;
    for (const auto& [name, entry] : unpackCase.archive.tree) {
        Thing& thing = after[path + "/" + name] = made(entry.type(), unpackCase, scene.user);
        thing.content = entry.content;
    }
    return after;
}

}  // namespace vesk::testing
