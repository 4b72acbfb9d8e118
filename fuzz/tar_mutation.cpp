// SPDX-License-Identifier: MIT
// Mutations of TAR streams.
#include "fuzz/tar_mutation.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <random>

namespace vesk::fuzzing {

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Field {
    std::size_t offset, width;
};

// name, size, chksum, typeflag and prefix: the fields that are read.
constexpr std::array readFields{Field{0, 100}, Field{124, 12}, Field{148, 8}, Field{156, 1},
                                Field{345, 155}};

// Returns the size that the leading digits give, so that a stream with a damaged field can still be
// walked.
std::uint64_t looseSize(const std::uint8_t* block) {
    std::uint64_t size = 0;
    for (const std::uint8_t* digit = block + 124; digit != block + 136; ++digit) {
        if (*digit >= '0' && *digit <= '7') size = size * 8 + (*digit - std::uint64_t{'0'});
    }
    return size;
}

// Returns the positions of the header blocks, and after them the position of the end.
std::vector<std::size_t> entryPositions(const Bytes& archive) {
    std::vector<std::size_t> positions{0};
    std::size_t position = 0;
    while (archive.size() - position >= 512) {
        const std::uint8_t* const block = archive.data() + position;
        if (std::all_of(block, block + 512, [](std::uint8_t byte) { return byte == 0; })) break;
        const std::uint64_t padded = (looseSize(block) + 511) / 512 * 512;
        if (padded > archive.size() - position - 512) break;
        position += 512 + static_cast<std::size_t>(padded);
        positions.push_back(position);
    }
    return positions;
}

void repairChecksum(std::uint8_t* block) {
    std::fill_n(block + 148, 8, std::uint8_t{' '});
    unsigned sum = 0;
    for (std::size_t i = 0; i < 512; ++i)
        sum += block[i];
    char digits[8];
    std::snprintf(digits, sizeof digits, "%06o", sum);
    std::copy_n(digits, 7, block + 148);
}

void repairChecksums(Bytes& archive) {
    for (const std::size_t position : entryPositions(archive)) {
        if (archive.size() - position < 512) return;
        std::uint8_t* const block = archive.data() + position;
        if (std::any_of(block, block + 512, [](std::uint8_t byte) { return byte != 0; }))
            repairChecksum(block);
    }
}

void mutateField(Bytes& archive, std::size_t position, Field field) {
    if (archive.size() - position < 512) return;
    std::uint8_t* const first = archive.data() + position + field.offset;
    const std::size_t size = LLVMFuzzerMutate(first, field.width, field.width);
    std::fill(first + size, first + field.width, std::uint8_t{0});
}

// Moves the bytes of one entry in front of another, or removes them.
void moveEntry(Bytes& archive, const std::vector<std::size_t>& positions, std::size_t maxSize,
               std::mt19937& random) {
    if (positions.size() < 2) return;
    const std::size_t chosen = random() % (positions.size() - 1);
    const auto begin = archive.begin() + static_cast<std::ptrdiff_t>(positions[chosen]);
    const auto end = archive.begin() + static_cast<std::ptrdiff_t>(positions[chosen + 1]);
    if (random() % 3 == 0) {
        archive.erase(begin, end);
        return;
    }
    const Bytes entry(begin, end);
    if (archive.size() + entry.size() > maxSize) return;
    const std::size_t place = positions[random() % positions.size()];
    archive.insert(archive.begin() + static_cast<std::ptrdiff_t>(place), entry.begin(),
                   entry.end());
}

}  // namespace

void mutateTar(Bytes& archive, std::size_t maxSize, unsigned seed) {
    std::mt19937 random(seed);
    const std::vector<std::size_t> positions = entryPositions(archive);
    const bool keepBadSums = random() % 16 == 0;
    switch (random() % 4) {
        case 0:
            mutateBytes(archive, maxSize);
            break;
        case 1:
            moveEntry(archive, positions, maxSize, random);
            break;
        default:
            mutateField(archive, positions[random() % positions.size()],
                        readFields[random() % readFields.size()]);
    }
    if (!keepBadSums) repairChecksums(archive);
}

void mutateBytes(Bytes& bytes, std::size_t maxSize) {
    const std::size_t size = bytes.size();
    bytes.resize(std::max(size, maxSize));
    bytes.resize(LLVMFuzzerMutate(bytes.data(), size, maxSize));
}

}  // namespace vesk::fuzzing
