// SPDX-License-Identifier: MIT
// Finds the archive module and loads it as a runtime would.
#pragma once

#include <filesystem>
#include <stdexcept>

#include "commandline/archive_format.h"
#include "commandline/arguments.h"
#include "module/native_methods.h"

namespace vesk::commandline {

/// The four exported functions have one type.
using NativeMethod = decltype(&vesk_io_archives_TarArchiver_makeArchive);

/// The module's exported functions; never null.
struct ModuleLibrary {
    NativeMethod tarMake;
    NativeMethod tarUnpack;
    NativeMethod tgzMake;
    NativeMethod tgzUnpack;

    NativeMethod method(Verb verb, ArchiveFormat format) const;
};

/// The module cannot be loaded or lacks a function. The text says what to do.
struct ModuleError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Loads the module from `chosen` or, if that is empty, from its place beside this program: first
/// that of an installation, then that of a build tree. It stays loaded until the process ends.
/// Throws ModuleError.
ModuleLibrary loadModule(const std::filesystem::path& chosen);

}  // namespace vesk::commandline
