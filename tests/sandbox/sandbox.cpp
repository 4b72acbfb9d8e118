// SPDX-License-Identifier: MIT
// Making and removing a planned tree.
#include "tests/sandbox/sandbox.h"

#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <system_error>

#include "tests/sandbox/snapshot.h"
#include "tests/support/temp_dir.h"

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

void require(bool done, const fs::path& path) {
    if (!done) throw std::runtime_error("cannot make " + visible(path));
}

void make(const fs::path& path, const PlannedThing& thing) {
    switch (thing.type) {
        case S_IFDIR:
            return require(mkdir(path.c_str(), 0755) == 0, path);
        case S_IFREG:
            return writeFile(path, thing.content);
        case S_IFLNK:
            return require(symlink(thing.content.c_str(), path.c_str()) == 0, path);
        default:
            return require(mknod(path.c_str(), thing.type | 0600, 0) == 0, path);
    }
}

/// Sets the owner first: changing it clears special bits.
void setOwnerAndPermissions(const fs::path& path, const PlannedThing& thing) {
    if (geteuid() == 0) require(lchown(path.c_str(), thing.owner.uid, thing.owner.gid) == 0, path);
    if (!S_ISLNK(thing.type)) require(chmod(path.c_str(), thing.permissions) == 0, path);
}

}  // namespace

Sandbox::Sandbox(fs::path top, const SandboxPlan& plan) : top_(std::move(top)) {
    const mode_t mask = umask(022);
    require(mkdir(top_.c_str(), 0755) == 0, top_);
    for (const PlannedThing& thing : plan.things)
        make(top_ / thing.path, thing);
    // The content is made before permissions forbid it. Its permissions are set before those of its
    // directory.
    fs::current_path(top_ / plan.workingDirectory);
    for (auto thing = plan.things.rbegin(); thing != plan.things.rend(); ++thing)
        setOwnerAndPermissions(top_ / thing->path, *thing);
    umask(mask);
}

Sandbox::~Sandbox() {
    std::error_code ignored;
    fs::current_path("/", ignored);
    if (geteuid() != 0) {
        for (const auto& [path, thing] : takeSnapshot(top_)) {
            if (thing.isDirectory()) fs::permissions(top_ / path, fs::perms::owner_all, ignored);
        }
    }
    fs::remove_all(top_, ignored);
}

}  // namespace vesk::testing
