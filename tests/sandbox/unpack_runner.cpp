// SPDX-License-Identifier: MIT
// One call of the module with the stand-in host, with the sandbox examined before and after it.
#include "tests/sandbox/unpack_runner.h"

#include <cerrno>
#include <filesystem>
#include <optional>

#include "module/native_methods.h"
#include "standinhost/standin_host.h"
#include "tests/sandbox/acting_user.h"
#include "tests/sandbox/unpack_judge.h"

namespace vesk::testing {

namespace {

/// Calls the module and returns the message of a failure.
std::optional<std::string> unpack(const UnpackCase& unpackCase, const std::string& archive) {
    const auto method = unpackCase.archive.container == Container::tar
                            ? vesk_io_archives_TarArchiver_unpackArchive
                            : vesk_io_archives_TgzArchiver_unpackArchive;
    standin::Mode mode{unpackCase.overwrite};
    method(nullptr, archive.c_str(), unpackCase.destination.c_str(), &mode);
    const auto error = standin::takePendingError();
    if (!error) return std::nullopt;
    return error->message;
}

/// Returns the absolute paths of the left-overs that the stand-in reports after a call.
std::vector<std::string> toldLeftovers() {
    const auto leftover = standin::takeLeftover();
    if (!leftover) return {};
    return {leftover->path.native()};
}

/// If our own walk and that of the kernel differ, the test is wrong and not the stand-in.
bool agreesWithKernel(const std::string& path, const KernelPlace& place) {
    struct stat status {};
    const bool isThere = stat(path.c_str(), &status) == 0;
    if (!isThere && errno == EACCES && place.linkOfAnother) return true;
    if (!place.passedMissing.empty()) return !isThere;
    if (isThere != place.there.has_value()) return false;
    return !isThere || (status.st_ino == place.there->st_ino);
}

}  // namespace

UnpackRunner::UnpackRunner() {
    std::filesystem::permissions(directory_->path(), std::filesystem::perms{0755});
}

void UnpackRunner::run(const UnpackCase& unpackCase, const std::string& archive,
                       const ActingUser& user, const std::string& title) {
    UnpackScene scene{top(), user, {}, takeSnapshot(top())};
    UnpackResult result;
    {
        const ActingAs acting(user);
        const std::string path = withoutTrailingDots(unpackCase.destination);
        scene.place = findPlace(path);
        if (!agreesWithKernel(path, scene.place)) findings_.add("the walk is wrong", title);
        if (!isHarmless(scene.place)) return;
        const mode_t before = umask(unpackCase.mask);
        result.message = unpack(unpackCase, archive);
        result.toldLeftovers = toldLeftovers();
        umask(before);
    }
    result.after = takeSnapshot(top());
    count(unpackCase, scene, !result.message);
    judgeUnpack(unpackCase, scene, result, title, findings_);
}

bool UnpackRunner::isHarmless(const KernelPlace& place) const {
    return place.error != 0 || (isAtOrBelow(place.path, top()) && place.path != top());
}

void UnpackRunner::count(const UnpackCase& unpackCase, const UnpackScene& scene, bool succeeded) {
    const Ending ending = predictUnpack(unpackCase, scene).ending;
    certainSuccesses_ += ending == Ending::success ? 1 : 0;
    certainFailures_ += ending == Ending::failure ? 1 : 0;
    successes_ += succeeded ? 1 : 0;
}

}  // namespace vesk::testing
