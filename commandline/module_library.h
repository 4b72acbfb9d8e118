// SPDX-License-Identifier: MIT
// The archive module, found and loaded as a runtime would do it.
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

/// The module's file cannot be loaded or lacks a function. The text says what to do.
struct ModuleError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Loads the module from `chosen` or, if that is empty, from its place beside this program: that of
/// an installation first, then that of a build tree. It stays loaded until the process ends. Throws
/// ModuleError.
ModuleLibrary loadModule(const std::filesystem::path& chosen);

}  // namespace vesk::commandline
