// SPDX-License-Identifier: MIT
// The names of what an extraction keeps beside its destination. They are hidden and start with the
// destination's own name. They tell a person who finds one what it was for. They end in random
// letters that nobody can guess.
#pragma once

#include <string>

namespace vesk::standin {

/// Returns such a name for the staging directory of `destination`, a different one each time.
std::string stagingName(const std::string& destination, bool overwrite);

/// Returns the name under which the old tree waits while the tree of the staging directory
/// `staging` takes its place. It ends in the same letters as `staging`, so it is as unique.
std::string replacedTreeName(const std::string& destination, const std::string& staging);

}  // namespace vesk::standin
