// SPDX-License-Identifier: MIT
// A library that has none of the nine functions and, when VESK_DEFECT says so, cannot even be
// loaded.
#include <cstdlib>
#include <string_view>

[[gnu::constructor]] static void crashWhenLoaded() {
    const char* const defect = std::getenv("VESK_DEFECT");
    if (defect != nullptr && defect == std::string_view("loading crashes")) std::abort();
}
