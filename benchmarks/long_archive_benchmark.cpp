// SPDX-License-Identifier: MIT
// Extracting archives with very many headers: the cost of an entry must not grow with the number of
// entries before it. Set TMPDIR to a memory file system to exclude the disk.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "tar/header_block.h"
#include "tar/octal_field.h"
#include "tar/stream_extractor.h"
#include "tar/ustar_header.h"

namespace {

using namespace vesk::io::archives;

using Block = std::array<std::uint8_t, tarBlockSize>;

class ScratchDirectory {
public:
    ScratchDirectory() {
        std::string pattern = std::filesystem::temp_directory_path() / "long-archive-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make " + pattern);
        path_ = pattern;
    }
    ~ScratchDirectory() { std::filesystem::remove_all(path_); }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

Block emptyFile(const std::string& name) {
    Block block;
    tarBuildHeaderBlock(name, 0, block);
    return block;
}

Block directory(const std::string& name) {
    Block block = emptyFile(name);
    *TarTypeflag::in(block.data()) = tarDirectory;
    tarWriteOctal(TarChksum::in(block.data()), TarChksum::width - 1, tarHeaderChecksum(block));
    return block;
}

// 128 components in 256 bytes, the longest name that a header holds.
std::string deepestName() {
    std::string name;
    for (int i = 0; i < 127; ++i)
        name += "a/";
    return name + "ff";
}

void extract(benchmark::State& state, const Block& header) {
    std::vector<std::uint8_t> archive;
    for (std::int64_t i = 0; i < state.range(0); ++i)
        archive.insert(archive.end(), header.begin(), header.end());
    archive.resize(archive.size() + tarEndMarkerSize);

    const ScratchDirectory root;
    std::string errorText;
    for (auto _ : state) {
        if (!tarExtractArchiveBytes(archive, root.path(), errorText)) {
            state.SkipWithError(errorText.c_str());
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK_CAPTURE(extract, oneDirectory, directory("d"))
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(extract, oneName, emptyFile("f"))
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(extract, deepestName, emptyFile(deepestName()))
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Unit(benchmark::kMillisecond);

}  // namespace
