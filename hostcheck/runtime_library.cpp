// SPDX-License-Identifier: MIT
// Loading a runtime library and finding its functions.
#include "hostcheck/runtime_library.h"

#include <dlfcn.h>

#include <stdexcept>

namespace vesk::hostcheck {

namespace {

// A runtime that was built for another C++ standard library or another size of integers has other
// names, and does not fit a module that is built like this program. The names are written out,
// since neither the language nor the linker gives a program the symbol of a function that it does
// not contain.
#if !defined(__LP64__)
#error "The names below are those of systems of 64 bits."
#elif defined(_LIBCPP_VERSION)

constexpr std::array<HostFunction, 9> functions = {{
    {"Vesk_raise", "Vesk_raise"},
    {"Vesk_hasPendingError", "Vesk_hasPendingError"},
    {"Vesk_runtimeFsPath", "_Z18Vesk_runtimeFsPathPKc"},
    {"modeIsOverwrite", "_ZN4vesk7runtime8archives15modeIsOverwriteEPv"},
    {"prepareExtractionStaging",
     "_ZN4vesk7runtime8archives24prepareExtractionStagingERKNSt3__14__fs10filesystem4pathEbRS5_"
     "RNS2_12basic_stringIcNS2_11char_traitsIcEENS2_9allocatorIcEEEE"},
    {"commitExtractionStaging",
     "_ZN4vesk7runtime8archives23commitExtractionStagingERKNSt3__14__fs10filesystem4pathES7_"
     "RNS2_12basic_stringIcNS2_11char_traitsIcEENS2_9allocatorIcEEEE"},
    {"removeExtractionTree",
     "_ZN4vesk7runtime8archives20removeExtractionTreeERKNSt3__14__fs10filesystem4pathE"},
    {"crc32Update", "_ZN4vesk7runtime3zip11crc32UpdateEjPKhm"},
    {"inflateRaw",
     "_ZN4vesk7runtime3zip10inflateRawERNSt3__113basic_istreamIcNS2_11char_traitsIcEEEEmm"
     "RNS2_13basic_ostreamIcS5_EERjRNS2_12basic_stringIcS5_NS2_9allocatorIcEEEE"},
}};

#elif defined(__GLIBCXX__) && _GLIBCXX_USE_CXX11_ABI

constexpr std::array<HostFunction, 9> functions = {{
    {"Vesk_raise", "Vesk_raise"},
    {"Vesk_hasPendingError", "Vesk_hasPendingError"},
    {"Vesk_runtimeFsPath", "_Z18Vesk_runtimeFsPathB5cxx11PKc"},
    {"modeIsOverwrite", "_ZN4vesk7runtime8archives15modeIsOverwriteEPv"},
    {"prepareExtractionStaging",
     "_ZN4vesk7runtime8archives24prepareExtractionStagingERKNSt10filesystem7__cxx114pathEbRS4_"
     "RNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"},
    {"commitExtractionStaging",
     "_ZN4vesk7runtime8archives23commitExtractionStagingERKNSt10filesystem7__cxx114pathES6_"
     "RNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"},
    {"removeExtractionTree",
     "_ZN4vesk7runtime8archives20removeExtractionTreeERKNSt10filesystem7__cxx114pathE"},
    {"crc32Update", "_ZN4vesk7runtime3zip11crc32UpdateEjPKhm"},
    {"inflateRaw",
     "_ZN4vesk7runtime3zip10inflateRawERSimmRSoRjRNSt7__cxx1112basic_stringIcSt11char_traitsIcE"
     "SaIcEEE"},
}};

#else
#error "The names above are those of libc++, and of libstdc++ with its C++11 strings."
#endif

template <typename Function>
void find(void* library, std::size_t index, Function*& function) {
    function = reinterpret_cast<Function*>(findSymbol(library, functions[index].symbol));
}

}  // namespace

const std::array<HostFunction, 9>& hostFunctions() {
    return functions;
}

void* loadLibrary(const std::filesystem::path& library) {
    // RTLD_NOW: a name that cannot be resolved should fail here and not in some trial.
    void* const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): its text is kept per thread
    if (handle == nullptr) throw std::runtime_error(dlerror());
    return handle;
}

void* findSymbol(void* library, const char* symbol) {
    return dlsym(library, symbol);
}

Runtime findFunctions(void* library) {
    Runtime found{};
    find(library, 0, found.raise);
    find(library, 1, found.hasPendingError);
    find(library, 2, found.fsPath);
    find(library, 3, found.modeIsOverwrite);
    find(library, 4, found.prepareStaging);
    find(library, 5, found.commitStaging);
    find(library, 6, found.removeTree);
    find(library, 7, found.crc32Update);
    find(library, 8, found.inflateRaw);
    return found;
}

}  // namespace vesk::hostcheck
