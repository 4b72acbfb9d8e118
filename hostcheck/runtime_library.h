// SPDX-License-Identifier: MIT
// Loading a runtime library, and finding its nine functions.
#pragma once

#include <array>
#include <filesystem>

#include "module/host/host_runtime.h"

namespace vesk::hostcheck {

/// The nine functions. None is null once it is known that the library has all of them.
struct Runtime {
    decltype(&Vesk_raise) raise;
    decltype(&Vesk_hasPendingError) hasPendingError;
    decltype(&Vesk_runtimeFsPath) fsPath;
    decltype(&runtime::archives::modeIsOverwrite) modeIsOverwrite;
    decltype(&runtime::archives::prepareExtractionStaging) prepareStaging;
    decltype(&runtime::archives::commitExtractionStaging) commitStaging;
    decltype(&runtime::archives::removeExtractionTree) removeTree;
    decltype(&runtime::zip::crc32Update) crc32Update;
    decltype(&runtime::zip::inflateRaw) inflateRaw;
};

/// The name of a function in the source and in the library.
struct HostFunction {
    const char* name;
    const char* symbol;
};

/// The names of the nine functions, in the order of host_runtime.h.
const std::array<HostFunction, 9>& hostFunctions();

/// Loads `library` into this process, where it stays, and returns its handle. Throws
/// std::runtime_error with the system's text when it cannot be loaded.
void* loadLibrary(const std::filesystem::path& library);

/// Returns the address of `symbol` in the loaded library or in a library that it needs, or null
/// when there is none.
void* findSymbol(void* library, const char* symbol);

/// Returns the functions of the loaded library.
Runtime findFunctions(void* library);

}  // namespace vesk::hostcheck
