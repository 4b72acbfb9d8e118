// SPDX-License-Identifier: MIT
// A library without the nine functions. When VESK_DEFECT says so, it cannot even be loaded.
#include <cstdlib>
#include <string_view>

[[gnu::constructor]] static void crashWhenLoaded() {
    const char* const defect = std::getenv("VESK_DEFECT");
    if (defect != nullptr && defect == std::string_view("loading crashes")) std::abort();
}
