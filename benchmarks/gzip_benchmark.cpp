// SPDX-License-Identifier: MIT
// Wrapping a stream in a gzip member and reading it back, without the file system.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "gzip/member_reader.h"
#include "gzip/member_writer.h"

namespace {

using namespace vesk::io::archives;

std::vector<std::uint8_t> contentOf(std::int64_t size) {
    std::vector<std::uint8_t> content(static_cast<std::size_t>(size));
    std::uint32_t value = 1;
    for (std::uint8_t& byte : content) {
        value = value * 1664525 + 1013904223;
        byte = static_cast<std::uint8_t>(value >> 24);
    }
    return content;
}

void writeMember(benchmark::State& state) {
    const std::vector<std::uint8_t> content = contentOf(state.range(0));
    for (auto _ : state) {
        const ByteBuffer member = gzipWriteMember(content);
        benchmark::DoNotOptimize(member.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

// Includes passing a copy of the member, since reading consumes it.
void readMember(benchmark::State& state) {
    const ByteBuffer member = gzipWriteMember(contentOf(state.range(0)));
    for (auto _ : state) {
        ByteBuffer copy;
        copy.append(member.data(), member.size());
        GzipContent content;
        std::string errorText;
        if (!gzipReadMember(std::move(copy), content, errorText)) {
            state.SkipWithError(errorText.c_str());
            break;
        }
        benchmark::DoNotOptimize(content.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

// An empty stream, which costs only the framing; one full stored block; many blocks.
BENCHMARK(writeMember)->Arg(0)->Arg(65535)->Arg(8 << 20);
BENCHMARK(readMember)->Arg(0)->Arg(65535)->Arg(8 << 20);

}  // namespace
