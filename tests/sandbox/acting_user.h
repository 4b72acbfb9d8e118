// SPDX-License-Identifier: MIT
// Acting as another user for a while, without another process.
#pragma once

#include <grp.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <stdexcept>

namespace vesk::testing {

/// The user that makes the calls of a test.
struct ActingUser {
    uid_t uid;
    gid_t gid;
    bool isRoot() const { return uid == 0; }
};

inline ActingUser presentUser() {
    return {geteuid(), getegid()};
}

/// An ordinary user, to whom permissions apply.
inline constexpr ActingUser ordinaryUser{65534, 65534};

/// Makes this process act as `user` for as long as it lives. This requires root, unless the process
/// is that user already. The real ids change, too, since access(2) uses them; the saved ids allow
/// the return.
class ActingAs {
public:
    explicit ActingAs(const ActingUser& user) : before_(presentUser()) {
        if (user.uid == before_.uid) return;
        changed_ = true;
        require(setgroups(0, nullptr));
        require(setresgid(user.gid, user.gid, before_.gid));
        require(setresuid(user.uid, user.uid, before_.uid));
        // Makes the process's files in /proc belong to that user, as for a program that the user
        // starts.
        require(prctl(PR_SET_DUMPABLE, 1, 0, 0, 0));
    }
    ~ActingAs() {
        if (!changed_) return;
        const bool back = setresuid(before_.uid, before_.uid, before_.uid) == 0 &&
                          setresgid(before_.gid, before_.gid, before_.gid) == 0;
        if (!back) _exit(1);
    }
    ActingAs(const ActingAs&) = delete;
    ActingAs& operator=(const ActingAs&) = delete;

private:
    static void require(int result) {
        if (result != 0) throw std::runtime_error("cannot become another user");
    }

    ActingUser before_;
    bool changed_ = false;
};

}  // namespace vesk::testing
