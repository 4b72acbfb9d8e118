// SPDX-License-Identifier: MIT
// Running a piece of a test in a child process, as a user to whom file permissions apply.
#pragma once

#include <unistd.h>

#include <functional>
#include <string>

#include "tests/support/in_child.h"

namespace vesk::testing {

/// Runs `body` in a child process after `become` has changed its user. Returns the text of `body`,
/// or a text that begins with "child failed" when either failed, threw or died.
inline std::string inChildThatBecame(const std::function<bool()>& become,
                                     const std::function<std::string()>& body) {
    return inChild(
        [&] { return become() ? body() : std::string("child failed: it cannot become that"); });
}

/// Runs `body` in a child process as an ordinary user: as the user 65534 when this process is root,
/// otherwise as the same user. Files that the body needs must be open to everyone.
inline std::string asOrdinaryUser(const std::function<std::string()>& body) {
    return inChildThatBecame(
        [] { return geteuid() != 0 || (setgid(65534) == 0 && setuid(65534) == 0); }, body);
}

}  // namespace vesk::testing
