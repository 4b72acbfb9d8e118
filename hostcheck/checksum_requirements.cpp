// SPDX-License-Identifier: MIT
// The requirements for crc32Update.
#include <sys/mman.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "hostcheck/requirement.h"
#include "hostcheck/wording.h"

namespace vesk::hostcheck {

namespace {

constexpr std::uint32_t start = 0xFFFFFFFF;

std::uint32_t update(const Trial& trial, std::uint32_t crc, std::string_view bytes) {
    return trial.runtime.crc32Update(crc, reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                     bytes.size());
}

void expectCrc(std::uint32_t expected, std::uint32_t came, const std::string& what) {
    expect(came == expected, hexadecimal(expected) + " " + what, hexadecimal(came));
}

std::string everyByte() {
    std::string bytes;
    for (int value = 0; value < 256; ++value)
        bytes += static_cast<char>(value);
    return bytes;
}

void computesGzipCrc(const Trial& trial) {
    const std::vector<std::pair<std::string, std::uint32_t>> rows = {
        {"a", 0xE8B7BE43},
        {"abc", 0x352441C2},
        {"123456789", 0xCBF43926},
        {std::string(32, '\0'), 0x190A55AD},
        {std::string(32, '\xFF'), 0xFF6CAB0B},
        {everyByte(), 0x29058C73},
    };
    for (const auto& [bytes, crc] : rows) {
        expectCrc(crc, ~update(trial, start, bytes),
                  "as the inverted register after " + inQuotes(bytes));
    }
}

void continuesOverPieces(const Trial& trial) {
    const std::string bytes = everyByte();
    const std::string_view view = bytes;
    const std::uint32_t whole = update(trial, start, view);
    for (std::size_t length = 0; length <= view.size(); ++length) {
        const std::uint32_t front = update(trial, start, view.substr(0, length));
        expectCrc(whole, update(trial, front, view.substr(length)),
                  "as for the whole, with 256 bytes split after " + std::to_string(length));
    }
}

void leavesRegisterForNothing(const Trial& trial) {
    for (const std::uint32_t crc : {0xFFFFFFFFU, 0x00000000U, 0x12345678U}) {
        expectCrc(crc, trial.runtime.crc32Update(crc, nullptr, 0),
                  "for no bytes at a null pointer");
    }
}

/// Maps zeroed memory. As long as it is not written to, it needs no physical memory.
char* mapZeros(std::size_t size) {
    void* const zeros = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (zeros == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    // Saves a million page faults where the system supports it.
    madvise(zeros, size, MADV_HUGEPAGE);
    return static_cast<char*>(zeros);
}

void countsIn64Bits(const Trial& trial) {
    constexpr std::string_view digits = "123456789";
    constexpr std::size_t zeros = std::size_t{1} << 32U;
    char* const bytes = mapZeros(zeros + digits.size());
    std::memcpy(bytes + zeros, digits.data(), digits.size());
    expectCrc(0xCE7745FE, ~update(trial, start, {bytes, zeros + digits.size()}),
              "as the inverted register after 4294967296 zeros and \"123456789\"");
}

constexpr std::array<Requirement, 4> requirements = {{
    {Weight::requirement, "crc32Update", "computes the CRC-32 of gzip and inverts nothing",
     computesGzipCrc},
    {Weight::requirement, "crc32Update", "continues over pieces", continuesOverPieces},
    {Weight::requirement, "crc32Update", "leaves the register as it is for no bytes",
     leavesRegisterForNothing},
    // The timeout leaves enough time for a table-driven implementation.
    {Weight::requirement, "crc32Update", "counts in 64 bits", countsIn64Bits, 120},
}};

}  // namespace

std::span<const Requirement> checksumRequirements() {
    return requirements;
}

}  // namespace vesk::hostcheck
