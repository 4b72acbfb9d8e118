// SPDX-License-Identifier: MIT
// The names of what an extraction keeps beside its destination. They are hidden, start with the
// destination's own name, tell a person who finds one what it was for, and end in letters that
// nobody can guess.
#pragma once

#include <string>

namespace vesk::standin {

/// Returns such a name for the staging directory of `destination`, another one each time.
std::string stagingName(const std::string& destination, bool overwrite);

/// Returns the name under which the old tree waits while the one of the staging directory `staging`
/// takes its place. As unique as that.
std::string replacedTreeName(const std::string& destination, const std::string& staging);

}  // namespace vesk::standin
