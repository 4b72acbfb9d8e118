// SPDX-License-Identifier: MIT
// One run of the program, with the sandbox examined before and after it.
#include "tests/sandbox/make_runner.h"

#include <fcntl.h>

#include <filesystem>

namespace vesk::testing {

namespace {

/// Keeps a FIFO open for reading, without waiting, so that writers need not wait.
class ReaderOf {
public:
    explicit ReaderOf(const KernelPlace& place) {
        if (place.there && S_ISFIFO(place.there->st_mode))
            end_ = open(place.path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    }
    ~ReaderOf() {
        if (end_ >= 0) close(end_);
    }
    ReaderOf(const ReaderOf&) = delete;
    ReaderOf& operator=(const ReaderOf&) = delete;

private:
    int end_ = -1;
};

std::vector<std::string> wordsOf(const MakeCase& makeCase) {
    std::vector<std::string> words = {"make", "--quiet", "--format",
                                      makeCase.container == Container::tar ? "tar" : "tgz"};
    if (makeCase.overwrite) words.push_back("--overwrite");
    words.insert(words.end(), {"--", makeCase.source, makeCase.archive});
    return words;
}

}  // namespace

MakeRunner::MakeRunner() {
    std::filesystem::permissions(directory_->path(), std::filesystem::perms{0755});
}

void MakeRunner::run(const MakeCase& makeCase, const ActingUser& user, const std::string& title) {
    MakeScene scene{top(), user, {}, {}, takeSnapshot(top())};
    MakePrediction prediction;
    {
        const ActingAs acting(user);
        scene.source = findPlace(makeCase.source);
        scene.archive = findPlace(makeCase.archive);
        if (!isInside(scene.source) || !isInside(scene.archive)) return;
        prediction = predictMake(makeCase, scene);
    }
    const MakeResult result = runProgram(makeCase, scene);
    certainSuccesses_ += prediction.prediction.ending == Ending::success ? 1 : 0;
    certainFailures_ += prediction.prediction.ending == Ending::failure ? 1 : 0;
    successes_ += result.end.status == 0 ? 1 : 0;
    judgeMake(makeCase, scene, prediction, result, title, findings_);
}

MakeResult MakeRunner::runProgram(const MakeCase& makeCase, const MakeScene& scene) const {
    MakeResult result;
    {
        const ReaderOf reader(scene.archive);
        result.end = program_.run(wordsOf(makeCase), scene.user, makeCase.mask);
    }
    const KernelPlace now = findPlace(makeCase.archive);
    if (now.there && S_ISREG(now.there->st_mode)) result.place = now.path.substr(top().size() + 1);
    result.after = takeSnapshot(top());
    return result;
}

bool MakeRunner::isInside(const KernelPlace& place) const {
    return place.error != 0 || (isAtOrBelow(place.path, top()) && place.path != top());
}

}  // namespace vesk::testing
