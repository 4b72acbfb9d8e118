// SPDX-License-Identifier: MIT
// Loading a library and finding its functions; a test cannot continue without them.
#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace vesk::testing {

inline void* loadLibrary(const char* path) {
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        std::abort();
    }
    return library;
}

inline void* findSymbol(void* library, const char* name) {
    void* const symbol = dlsym(library, name);
    if (symbol == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        std::abort();
    }
    return symbol;
}

}  // namespace vesk::testing
