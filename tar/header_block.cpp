// SPDX-License-Identifier: MIT
// Building a ustar header block, field by field in the order of the format.
#include "tar/header_block.h"

#include <algorithm>
#include <numeric>
#include <optional>

#include "module/host/failure.h"
#include "tar/octal_field.h"

namespace vesk::io::archives {

namespace {

struct SplitName {
    std::string_view prefix;
    std::string_view name;
};

// Only the rightmost slash that leaves a storable prefix is tried: a split further left would make
// the part for `name` longer.
std::optional<SplitName> splitEntryName(std::string_view entryName) {
    if (entryName.size() <= TarName::width) return SplitName{"", entryName};

    const std::size_t slash = entryName.rfind('/', TarPrefix::width);
    if (slash == std::string_view::npos) return std::nullopt;
    const std::string_view name = entryName.substr(slash + 1);
    if (name.size() > TarName::width) return std::nullopt;
    return SplitName{entryName.substr(0, slash), name};
}

void copyText(std::uint8_t* field, std::string_view text) {
    std::copy(text.begin(), text.end(), field);
}

template <typename Field>
void writeOctal(std::uint8_t* block, std::uint64_t value) {
    tarWriteOctal(Field::in(block), Field::width, value);
}

// Six digits, NUL, space: no other numeric field has this form. The largest sum has six octal
// digits.
void writeChecksum(std::uint8_t* field, std::uint32_t sum) {
    tarWriteOctal(field, TarChksum::width - 1, sum);
    field[TarChksum::width - 1] = ' ';
}

}  // namespace

void tarBuildHeaderBlock(std::string_view entryName, std::uint64_t size,
                         std::span<std::uint8_t, tarBlockSize> block) {
    std::fill(block.begin(), block.end(), std::uint8_t{0});
    const std::optional<SplitName> split = splitEntryName(entryName);
    if (!split) {
        raiseFailure("TAR entry name is too long");
        return;
    }

    std::uint8_t* const header = block.data();
    copyText(TarName::in(header), split->name);
    writeOctal<TarMode>(header, 0644);
    writeOctal<TarUid>(header, 0);
    writeOctal<TarGid>(header, 0);
    writeOctal<TarSize>(header, size);
    writeOctal<TarMtime>(header, 0);
    *TarTypeflag::in(header) = tarRegularFile;
    copyText(TarMagic::in(header), "ustar");
    copyText(TarVersion::in(header), "00");
    copyText(TarPrefix::in(header), split->prefix);
    writeChecksum(TarChksum::in(header), tarHeaderChecksum(block));
}

std::uint32_t tarHeaderChecksum(std::span<const std::uint8_t, tarBlockSize> block) {
    const auto chksum = block.subspan<TarChksum::offset, TarChksum::width>();
    const std::uint32_t stored = std::accumulate(chksum.begin(), chksum.end(), std::uint32_t{0});
    const std::uint32_t sum = std::accumulate(block.begin(), block.end(), std::uint32_t{0});
    return sum - stored + TarChksum::width * std::uint32_t{' '};
}

}  // namespace vesk::io::archives
