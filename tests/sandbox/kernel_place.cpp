// SPDX-License-Identifier: MIT
// The walk: the kernel resolves every single step.
#include "tests/sandbox/kernel_place.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <deque>
#include <stdexcept>
#include <utility>

#include "tests/sandbox/sandbox_plan.h"
#include "tests/sandbox/snapshot.h"

namespace vesk::testing {

namespace {

constexpr int mostLinks = 40;

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(other.number_) { other.number_ = -1; }
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() {
        if (number_ >= 0) close(number_);
    }
    int number() const { return number_; }
    bool isOpen() const { return number_ >= 0; }

private:
    int number_;
};

/// A component that is still to be walked, and whether it came from a link. A component without a
/// name must be a directory, which need not be searched.
struct Step {
    std::string name;
    bool fromLink;
};

std::deque<Step> stepsOf(const std::string& path, bool fromLink) {
    std::deque<Step> steps;
    for (std::string& name : splitPath(path))
        steps.push_back({std::move(name), fromLink});
    if (path.ends_with('/')) steps.push_back({"", fromLink});
    return steps;
}

Descriptor openPlace(int directory, const char* name) {
    return Descriptor(openat(directory, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
}

std::string textOfLink(int directory, const char* name) {
    std::array<char, PATH_MAX> text{};
    const ssize_t length = readlinkat(directory, name, text.data(), text.size());
    if (length < 0) throw std::runtime_error("cannot read a link");
    return std::string(text.data(), static_cast<std::size_t>(length));
}

/// The kernel knows the path of an open file.
std::string pathOfOpen(const Descriptor& file) {
    return textOfLink(AT_FDCWD, ("/proc/self/fd/" + std::to_string(file.number())).c_str());
}

struct stat statusOf(const Descriptor& file) {
    struct stat status {};
    if (fstat(file.number(), &status) != 0) throw std::runtime_error("cannot look at a file");
    return status;
}

class Walk {
public:
    explicit Walk(const std::string& path)
        : steps_(stepsOf(path, false)),
          current_(openPlace(AT_FDCWD, path.starts_with('/') ? "/" : ".")),
          start_(current_.isOpen() ? pathOfOpen(current_) : "") {}

    KernelPlace run() {
        if (!current_.isOpen()) return failed(errno);
        while (!steps_.empty() && place_.error == 0) {
            const Step step = steps_.front();
            steps_.pop_front();
            place_.missing.empty() ? goOn(step) : goBelowMissing(step);
        }
        if (place_.error == 0) describeEnd();
        return place_;
    }

private:
    KernelPlace failed(int error) {
        place_.error = error;
        return place_;
    }

    void goOn(const Step& step) {
        if (step.name.empty()) {
            if (!S_ISDIR(statusOf(current_).st_mode)) meetNothing(step, ENOTDIR);
            return;
        }
        Descriptor next = openPlace(current_.number(), step.name.c_str());
        if (!next.isOpen()) return meetNothing(step, errno);
        if (S_ISLNK(statusOf(next).st_mode)) return meetLink(next);
        current_ = std::move(next);
    }

    /// Only a name of the path itself can be made. A dangling link stays as it is.
    void meetNothing(const Step& step, int error) {
        if (step.fromLink && isEnd()) place_.endDangles = error != EACCES;
        if (error != ENOENT || step.fromLink) {
            place_.error = error;
        } else {
            place_.missing.push_back(step.name);
        }
    }

    void goBelowMissing(const Step& step) {
        if (step.name.size() > NAME_MAX) {
            place_.error = ENAMETOOLONG;
            place_.path = missingPath();
        } else if (!step.name.empty() && step.name != "." && step.name != "..") {
            place_.missing.push_back(step.name);
        } else if (step.name == "..") {
            place_.passedMissing.push_back(missingPath());
            place_.missing.pop_back();
            if (steps_.empty()) place_.error = ENOENT;
        }
    }

    void meetLink(const Descriptor& link) {
        const std::string target = textOfLink(link.number(), "");
        if (isLast()) noteLinkAtEnd(statusOf(link), statusOf(current_));
        if (++links_ > mostLinks) {
            place_.endDangles = isEnd();
            place_.error = ELOOP;
            return;
        }
        const std::deque<Step> added = stepsOf(target, true);
        steps_.insert(steps_.begin(), added.begin(), added.end());
        if (target.starts_with('/')) current_ = openPlace(AT_FDCWD, "/");
    }

    void noteLinkAtEnd(const struct stat& link, const struct stat& directory) {
        place_.endsInLink = true;
        if ((directory.st_mode & S_ISVTX) != 0 && link.st_uid != geteuid())
            place_.linkOfAnother = true;
    }

    /// All remaining components come from a link, which itself was the last one.
    bool isEnd() const { return steps_.empty() || steps_.back().fromLink; }

    /// Only the requirement of a directory remains.
    bool isLast() const {
        return std::all_of(steps_.begin(), steps_.end(),
                           [](const Step& step) { return step.name.empty(); });
    }

    std::string missingPath() const {
        return pathOfOpen(current_) + "/" + joinPath(place_.missing);
    }

    void describeEnd() {
        if (place_.missing.empty()) {
            place_.there = statusOf(current_);
            place_.path = pathOfOpen(current_);
            place_.directory = parentOf(place_.path);
            place_.mayChange = access(place_.directory.c_str(), W_OK | X_OK) == 0;
        } else {
            place_.directory = pathOfOpen(current_);
            place_.path = missingPath();
            place_.mayChange = faccessat(current_.number(), ".", W_OK | X_OK, 0) == 0;
        }
        const std::string& found = place_.there ? place_.path : place_.directory;
        place_.isReachable = access(found.c_str(), F_OK) == 0 && access(start_.c_str(), F_OK) == 0;
    }

    std::deque<Step> steps_;
    Descriptor current_;
    std::string start_;  // the absolute path of the directory in which the walk begins
    KernelPlace place_;
    int links_ = 0;
};

}  // namespace

KernelPlace findPlace(const std::string& path) {
    if (path.empty()) {
        KernelPlace none;
        none.error = ENOENT;
        return none;
    }
    if (path.size() >= PATH_MAX) {
        KernelPlace none;
        none.error = ENAMETOOLONG;
        return none;
    }
    return Walk(path).run();
}

std::string withoutTrailingDots(std::string path) {
    while (path.size() > 1 && (path.ends_with('/') || path.ends_with("/.")))
        path.pop_back();
    return path;
}

}  // namespace vesk::testing
