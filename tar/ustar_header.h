// SPDX-License-Identifier: MIT
// The layout of the 512-byte ustar header block (POSIX.1-1988). No other file of the module
// contains offsets or widths.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vesk::io::archives {

/// Sizes in bytes. Headers, padded data and the end marker all consist of whole blocks.
enum : std::size_t {
    tarBlockSize = 512,
    tarEndMarkerSize = 2 * tarBlockSize,
};

/// One field of the header block, with its offset and width in bytes. It is a type, so that the two
/// stay together and need no storage.
template <std::size_t Offset, std::size_t Width>
struct TarField {
    enum : std::size_t { offset = Offset, width = Width, end = Offset + Width };

    /// Returns the field's first byte in the header block that begins at `block`.
    template <typename Byte>
    static Byte* in(Byte* block) {
        return block + offset;
    }
};

using TarName = TarField<0, 100>;
using TarMode = TarField<100, 8>;
using TarUid = TarField<108, 8>;
using TarGid = TarField<116, 8>;
using TarSize = TarField<124, 12>;
using TarMtime = TarField<136, 12>;
using TarChksum = TarField<148, 8>;
using TarTypeflag = TarField<156, 1>;
using TarLinkname = TarField<157, 100>;
using TarMagic = TarField<257, 6>;
using TarVersion = TarField<263, 2>;
using TarUname = TarField<265, 32>;
using TarGname = TarField<297, 32>;
using TarDevmajor = TarField<329, 8>;
using TarDevminor = TarField<337, 8>;
using TarPrefix = TarField<345, 155>;
using TarPadding = TarField<500, 12>;

/// Tells whether the fields, in the given order, cover the block without gaps or overlaps.
template <typename... Fields>
consteval bool tarFieldsTileBlock() {
    std::size_t position = 0;
    const bool touching = ((Fields::offset == position && (position = Fields::end) != 0) && ...);
    return touching && position == tarBlockSize;
}

static_assert(tarFieldsTileBlock<TarName, TarMode, TarUid, TarGid, TarSize, TarMtime, TarChksum,
                                 TarTypeflag, TarLinkname, TarMagic, TarVersion, TarUname, TarGname,
                                 TarDevmajor, TarDevminor, TarPrefix, TarPadding>());

/// The values of `typeflag` that are read or written.
enum TarType : std::uint8_t {
    tarOldRegularFile = 0,
    tarRegularFile = '0',
    tarDirectory = '5',
};

/// Returns the number of padding bytes that follow `size` bytes of entry data.
constexpr std::size_t tarPaddingAfter(std::uint64_t size) {
    return static_cast<std::size_t>((tarBlockSize - size % tarBlockSize) % tarBlockSize);
}

}  // namespace vesk::io::archives
