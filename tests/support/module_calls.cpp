// SPDX-License-Identifier: MIT
// Calls of the built module's exported functions, found by name as the runtime finds them.
#include "tests/support/module_calls.h"

#include "module/native_methods.h"
#include "tests/support/loaded_library.h"

namespace vesk::testing {

namespace {

template <typename Function>
Function* moduleFunction(Function*, const char* name) {
    static void* const library = loadLibrary(VESK_MODULE_PATH);
    return reinterpret_cast<Function*>(findSymbol(library, name));
}

#define MODULE_FUNCTION(name) moduleFunction(static_cast<decltype(&name)>(nullptr), #name)

}  // namespace

void makeArchive(Container container, const char* source, const char* archive, bool overwrite) {
    const auto function = container == Container::tar
                              ? MODULE_FUNCTION(vesk_io_archives_TarArchiver_makeArchive)
                              : MODULE_FUNCTION(vesk_io_archives_TgzArchiver_makeArchive);
    function(nullptr, source, archive, &overwrite);
}

void unpackArchive(Container container, const char* archive, const char* destination,
                   bool overwrite) {
    const auto function = container == Container::tar
                              ? MODULE_FUNCTION(vesk_io_archives_TarArchiver_unpackArchive)
                              : MODULE_FUNCTION(vesk_io_archives_TgzArchiver_unpackArchive);
    function(nullptr, archive, destination, &overwrite);
}

}  // namespace vesk::testing
