// SPDX-License-Identifier: MIT
// The rules for sources: regular files and links to them are stored, other kinds are skipped, and
// what cannot be read or leads nowhere ends the run.
#include "tests/sandbox/source_model.h"

#include <algorithm>

namespace vesk::testing {

namespace {

constexpr unsigned reading = 4;
constexpr unsigned searching = 1;

bool mayAccess(const Thing& thing, const ActingUser& user, unsigned wanted) {
    if (user.isRoot()) return true;
    unsigned shift = 0;
    if (thing.gid == user.gid) shift = 3;
    if (thing.uid == user.uid) shift = 6;
    return (thing.mode >> shift & wanted) == wanted;
}

/// Tells whether a name fits: one of more than 100 bytes is split at a slash, into at most 155 and
/// at most 100.
bool fitsHeader(const std::string& name) {
    if (name.size() <= 100) return true;
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == '/' && i <= 155 && name.size() - i - 1 <= 100) return true;
    }
    return false;
}

class Collection {
public:
    Collection(const Snapshot& snapshot, const std::string& top, const ActingUser& user)
        : snapshot_(snapshot), top_(top), user_(user) {}

    SourceFiles ofFile(const std::string& path, const std::string& name) {
        addFile(path, name);
        return result_;
    }

    SourceFiles ofDirectory(const std::string& root) {
        addDirectory(root);
        for (auto at = snapshot_.lower_bound(root + "/");
             at != snapshot_.end() && isAtOrBelow(at->first, root); ++at) {
            const std::string name = at->first.substr(root.size() + 1);
            if (at->second.isDirectory()) addDirectory(at->first);
            if (at->second.isRegular()) addFile(at->first, name);
            if (at->second.isLink()) addLink(at->first, name);
        }
        return result_;
    }

private:
    /// A certain result stays certain.
    void end(Ending ending, const std::string& reason, bool forWantOfSomething = false) {
        if (result_.ending == Ending::failure && !result_.isForWantOfSomething) return;
        if (result_.ending == Ending::failure && ending == Ending::either) return;
        result_.ending = ending;
        result_.reason = reason;
        result_.isForWantOfSomething = forWantOfSomething;
    }

    void addDirectory(const std::string& path) {
        const Thing& thing = snapshot_.at(path);
        if (!mayAccess(thing, user_, reading)) {
            end(Ending::failure, "a directory in the source that cannot be read");
        } else if (!mayAccess(thing, user_, searching) && !isEmptyDirectory(snapshot_, path)) {
            // Some file systems give the kind of an entry together with its name.
            end(Ending::either, "a directory in the source that cannot be searched");
        }
    }

    void addFile(const std::string& path, const std::string& name) {
        const Thing& thing = snapshot_.at(path);
        if (!mayAccess(thing, user_, reading))
            end(Ending::failure, "a file in the source that cannot be read");
        if (!fitsHeader(name)) end(Ending::failure, "a name in the source that is too long");
        result_.files[name] = thing.content;
        result_.paths[name] = path;
    }

    void addLink(const std::string& path, const std::string& name) {
        const KernelPlace place = findPlace(top_ + "/" + path);
        if (!place.there)
            return end(Ending::failure, "a link in the source that leads nowhere", true);
        if (place.linkOfAnother)
            end(Ending::either, "a link of another in a sticky directory in the source");
        if (S_ISREG(place.there->st_mode)) addFile(place.path.substr(top_.size() + 1), name);
    }

    const Snapshot& snapshot_;
    const std::string& top_;
    ActingUser user_;
    SourceFiles result_;
};

SourceFiles refused(const char* reason, bool isForWantOfSomething) {
    SourceFiles none;
    none.ending = Ending::failure;
    none.reason = reason;
    none.isForWantOfSomething = isForWantOfSomething;
    return none;
}

}  // namespace

SourceFiles filesOfSource(const std::string& spelling, const KernelPlace& place,
                          const Snapshot& snapshot, const std::string& top,
                          const ActingUser& user) {
    if (!place.there) return refused("a source that is not there", true);
    if (place.path.size() <= top.size()) return refused("a source that is too large", false);
    const std::string path = place.path.substr(top.size() + 1);
    if (!S_ISDIR(place.there->st_mode) && !S_ISREG(place.there->st_mode))
        return refused("a source that is neither a file nor a directory", false);
    Collection collection(snapshot, top, user);
    SourceFiles found = S_ISDIR(place.there->st_mode)
                            ? collection.ofDirectory(path)
                            : collection.ofFile(path, spelling.substr(spelling.rfind('/') + 1));
    // A setting of the system decides whether such a link is followed.
    if (place.linkOfAnother && found.ending == Ending::success) found.ending = Ending::either;
    if (!place.passedMissing.empty() && found.ending != Ending::failure) {
        found.ending = Ending::failure;
        found.reason = "a source by way of missing names";
        found.isForWantOfSomething = true;
    }
    return found;
}

}  // namespace vesk::testing
