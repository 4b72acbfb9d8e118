// SPDX-License-Identifier: MIT
// The built module's exported functions, called as the runtime calls them.
#pragma once

namespace vesk::testing {

/// The two kinds of archive: they choose the class whose methods are called.
enum class Container { tar, tgz };

/// Calls the built module's makeArchive or unpackArchive of the container's class. Arguments may be
/// null. `overwrite` becomes a mode handle that lives through the call.
void makeArchive(Container container, const char* source, const char* archive,
                 bool overwrite = false);
void unpackArchive(Container container, const char* archive, const char* destination,
                   bool overwrite = false);

}  // namespace vesk::testing
