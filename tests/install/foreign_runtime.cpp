// SPDX-License-Identifier: MIT
// The least that the module can be linked with in the place of a runtime.
#include "module/host/host_runtime.h"

void Vesk_raise(const char*, const char*) {}
int Vesk_hasPendingError(void) {
    return 0;
}
std::filesystem::path Vesk_runtimeFsPath(const char* text) {
    return text;
}

namespace vesk::runtime {

bool archives::modeIsOverwrite(void*) {
    return false;
}
bool archives::prepareExtractionStaging(const std::filesystem::path&, bool, std::filesystem::path&,
                                        std::string&) {
    return false;
}
bool archives::commitExtractionStaging(const std::filesystem::path&, const std::filesystem::path&,
                                       std::string&) {
    return false;
}
void archives::removeExtractionTree(const std::filesystem::path&) {}
std::uint32_t zip::crc32Update(std::uint32_t crc, const std::uint8_t*, std::uint64_t) {
    return crc;
}
bool zip::inflateRaw(std::istream&, std::uint64_t, std::uint64_t, std::ostream&, std::uint32_t&,
                     std::string&) {
    return false;
}

}  // namespace vesk::runtime
