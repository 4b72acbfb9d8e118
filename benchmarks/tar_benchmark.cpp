// SPDX-License-Identifier: MIT
// The routines that run once or more for each entry of an archive, without the file system.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>

#include "tar/entry_collection.h"
#include "tar/entry_name.h"
#include "tar/header_block.h"
#include "tar/octal_field.h"
#include "tar/ustar_header.h"

namespace {

using namespace vesk::io::archives;

using Block = std::array<std::uint8_t, tarBlockSize>;

const std::string shortName = "src/library/collections/ordered_map.vk";
// Does not fit `name` alone, and its rightmost slash leaves a prefix of 98 bytes.
const std::string splitName = std::string(48, 'd') + '/' + std::string(49, 'e') + "/file_name.vk";

Block headerOf(const std::string& entryName) {
    Block block;
    tarBuildHeaderBlock(entryName, 12345, block);
    return block;
}

void buildHeaderBlock(benchmark::State& state, const std::string& entryName) {
    Block block;
    for (auto _ : state) {
        tarBuildHeaderBlock(entryName, 12345, block);
        benchmark::DoNotOptimize(block.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK_CAPTURE(buildHeaderBlock, shortName, shortName);
BENCHMARK_CAPTURE(buildHeaderBlock, splitName, splitName);

void headerChecksum(benchmark::State& state) {
    Block block = headerOf(splitName);
    for (auto _ : state) {
        benchmark::DoNotOptimize(block.data());
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(tarHeaderChecksum(block));
    }
}
BENCHMARK(headerChecksum);

void writeOctal(benchmark::State& state) {
    Block block{};
    std::uint64_t value = 12345;
    for (auto _ : state) {
        benchmark::DoNotOptimize(value);
        tarWriteOctal(TarSize::in(block.data()), TarSize::width, value);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(writeOctal);

void parseOctal(benchmark::State& state) {
    Block block = headerOf(shortName);
    for (auto _ : state) {
        benchmark::DoNotOptimize(block.data());
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(tarParseOctal(TarSize::in(block.data()), TarSize::width));
    }
}
BENCHMARK(parseOctal);

void readEntryName(benchmark::State& state, const std::string& entryName) {
    Block block = headerOf(entryName);
    for (auto _ : state) {
        benchmark::DoNotOptimize(block.data());
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(tarReadEntryName(block));
    }
}
BENCHMARK_CAPTURE(readEntryName, shortName, shortName);
BENCHMARK_CAPTURE(readEntryName, splitName, splitName);

void isSafeEntryName(benchmark::State& state, const std::string& entryName) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(tarIsSafeEntryName(entryName));
    }
}
BENCHMARK_CAPTURE(isSafeEntryName, shortName, shortName);
BENCHMARK_CAPTURE(isSafeEntryName, splitName, splitName);
BENCHMARK_CAPTURE(isSafeEntryName, refusedByText, std::string("src/a:b"));

void normalizeEntryName(benchmark::State& state) {
    const std::filesystem::path path(splitName);
    for (auto _ : state) {
        benchmark::DoNotOptimize(zipNormalizeEntryName(path));
    }
}
BENCHMARK(normalizeEntryName);

}  // namespace
