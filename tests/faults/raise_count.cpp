// SPDX-License-Identifier: MIT
// Counts the raises before they reach the stand-in host.
#include "tests/faults/raise_count.h"

#include <dlfcn.h>

#include "module/host/host_runtime.h"

int vesk::testing::raiseCount = 0;

void Vesk_raise(const char* className, const char* message) {
    ++vesk::testing::raiseCount;
    static const auto next =
        reinterpret_cast<decltype(&Vesk_raise)>(dlsym(RTLD_NEXT, "Vesk_raise"));
    next(className, message);
}
