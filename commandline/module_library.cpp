// SPDX-License-Identifier: MIT
// Finding and loading the module.
#include "commandline/module_library.h"

#include <dlfcn.h>

#include <string>
#include <system_error>

namespace vesk::commandline {

namespace {

constexpr const char* moduleFile = "libvesk_io_archives.so";

[[noreturn]] void refuse(const std::string& problem) {
    throw ModuleError(problem + "; name the module's file with --module PATH");
}

std::filesystem::path moduleBesideProgram() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    // With an empty program path, the module would be looked for below the working directory.
    if (!program.is_absolute())
        refuse("cannot tell where this program is, to find the archive module");
    const auto programDirectory = program.parent_path();
    auto installed = programDirectory / VESK_MODULE_DIRECTORY / moduleFile;
    if (std::filesystem::exists(installed, error)) return installed;
    return programDirectory / "../lib" / moduleFile;
}

template <typename Function>
Function exportedFunction(void* library, const std::filesystem::path& file, const char* name) {
    void* const address = dlsym(library, name);
    if (address == nullptr) {
        refuse("the file '" + file.string() + "' has no function " + name);
    }
    return reinterpret_cast<Function>(address);
}

}  // namespace

NativeMethod ModuleLibrary::method(Verb verb, ArchiveFormat format) const {
    if (format == ArchiveFormat::tar) return verb == Verb::make ? tarMake : tarUnpack;
    return verb == Verb::make ? tgzMake : tgzUnpack;
}

ModuleLibrary loadModule(const std::filesystem::path& chosen) {
    // A name without a slash would be searched for among the system's libraries.
    const auto file = std::filesystem::absolute(chosen.empty() ? moduleBesideProgram() : chosen);
    void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): its text is kept per thread
        refuse(std::string("cannot load the archive module: ") + dlerror());
    }

    const auto find = [&](const char* name) {
        return exportedFunction<NativeMethod>(library, file, name);
    };
    return {find("vesk_io_archives_TarArchiver_makeArchive"),
            find("vesk_io_archives_TarArchiver_unpackArchive"),
            find("vesk_io_archives_TgzArchiver_makeArchive"),
            find("vesk_io_archives_TgzArchiver_unpackArchive")};
}

}  // namespace vesk::commandline
