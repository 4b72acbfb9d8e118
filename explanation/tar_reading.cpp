// SPDX-License-Identifier: MIT
// Reading a TAR stream by the module's rules. Behind the first fault it is read as programs do that
// know more formats, to find out what helps.
#include "explanation/tar_reading.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <set>
#include <span>
#include <utility>

#include "explanation/entry_kind.h"
#include "explanation/extended_header.h"
#include "explanation/file_kind.h"
#include "explanation/text.h"
#include "tar/entry_name.h"
#include "tar/header_block.h"
#include "tar/octal_field.h"
#include "tar/ustar_header.h"

namespace vesk::explanation {

namespace {

using namespace vesk::io::archives;

using Block = std::array<std::uint8_t, tarBlockSize>;

/// Its other fields may be blank.
constexpr std::uint8_t gnuVolumeLabel = 'V';

/// More than any genuine header of another format holds.
constexpr std::uint64_t longestExtension = 1024UL * 1024;

bool isZero(const Block& block) {
    return std::all_of(block.begin(), block.end(), [](std::uint8_t byte) { return byte == 0; });
}

template <typename Field>
std::optional<std::uint64_t> octal(const Block& block) {
    return tarParseOctal(Field::in(block.data()), Field::width);
}

/// The checksum of signed bytes, which some old programs wrote.
std::int64_t signedChecksum(const Block& block) {
    std::int64_t sum = tarHeaderChecksum(block);
    for (std::size_t at = 0; at < block.size(); ++at) {
        const bool isChecksum = at >= TarChksum::offset && at < TarChksum::end;
        if (!isChecksum && block.at(at) >= 0x80) sum -= 0x100;
    }
    return sum;
}

std::string inOctal(std::uint64_t number) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%06llo", static_cast<unsigned long long>(number));
    return text.data();
}

/// A numeric field read by the rules of other programs, and what to say about its content.
struct ForeignNumber {
    std::optional<std::uint64_t> value;
    std::string words;
};

template <typename Field>
ForeignNumber foreignNumber(const Block& block) {
    const std::span<const std::uint8_t> field(Field::in(block.data()), Field::width);
    const auto isBlank = [](std::uint8_t byte) { return byte == 0 || byte == ' '; };
    if (std::all_of(field.begin(), field.end(), isBlank)) return {0, "is left blank"};
    if (field[0] != 0x80)
        return {std::nullopt,
                "is no octal number: " + inQuotes(std::string(field.begin(), field.end()))};
    std::uint64_t value = 0;
    for (const std::uint8_t byte : field.subspan(Field::width - 8))
        value = value << 8 | byte;
    return {value, "is a binary number: " + std::to_string(value)};
}

bool isExtension(std::uint8_t typeflag) {
    return typeflag == 'x' || typeflag == 'g' || typeflag == 'L' || typeflag == 'K';
}

bool isMade(std::uint8_t typeflag) {
    return typeflag == tarOldRegularFile || typeflag == tarRegularFile || typeflag == tarDirectory;
}

/// Whether the header's field is an octal number that is not larger than `most`.
template <typename Field>
bool isAtMost(const Block& block, std::uint64_t most) {
    const std::optional<std::uint64_t> number = octal<Field>(block);
    return number && *number <= most;
}

/// Whether some writers of ustar cannot store the header's owner or time.
bool goesBeyondUstar(const Block& block) {
    return !isAtMost<TarUid>(block, largestOwner) || !isAtMost<TarGid>(block, largestOwner) ||
           !isAtMost<TarMtime>(block, largestTime);
}

class TarReader {
public:
    TarReader(ByteSource& stream, const std::string& subject, const TarVisitor& visit,
              bool passesEndMarkers)
        : stream_(stream), subject_(subject), visit_(visit), passesEndMarkers_(passesEndMarkers) {}

    TarReading read() {
        while (readEntry())
            pending_ = std::exchange(next_, {});
        return found_;
    }

private:
    bool readEntry();
    bool isChecksumRight();
    bool isBehindLink(const std::string& name);
    void checkName();
    std::optional<std::uint64_t> readSize();
    bool passSparseMap();
    bool passData(std::uint64_t size);
    bool passPadding(std::uint64_t size);
    void takeKind(std::uint64_t size);
    void takeExtension(const std::string& data);
    void noteEnd(std::size_t length);
    void noteNoArchive(std::size_t length);
    void note(const char* message, const std::string& finding, Remedy remedy);
    void worsen(Remedy remedy);
    bool isClean() const { return found_.message.empty(); }
    std::uint8_t typeflag() const { return *TarTypeflag::in(block_.data()); }
    std::string entry() const {
        return "entry " + std::to_string(number_) + ", " +
               inQuotes(pending_.name.value_or(tarReadEntryName(block_)));
    }
    std::string where() const {
        return "entry " + std::to_string(number_) + ", " + inQuotes(tarReadEntryName(block_)) +
               ": ";
    }

    ByteSource& stream_;
    const std::string& subject_;
    const TarVisitor& visit_;
    bool passesEndMarkers_;
    bool isBehindEnd_ = false;  ///< an end marker was the last that was read
    Block block_{};
    std::uint64_t number_ = 0;    ///< of the entry whose header the block is
    std::uint64_t position_ = 0;  ///< in the stream, after the bytes read so far
    ExtendedHeader pending_;      ///< applies to the entry that is being read
    ExtendedHeader next_;         ///< applies to the entry after it
    TarReading found_;
    std::uint64_t foundAt_ = 0;  ///< the number of the entry in the finding
    std::set<std::string> links_;
};

void TarReader::note(const char* message, const std::string& finding, Remedy remedy) {
    if (isClean()) {
        found_.message = message;
        found_.finding = finding;
        foundAt_ = number_;
    }
    worsen(remedy);
}

void TarReader::worsen(Remedy remedy) {
    if (remedy <= found_.remedy) return;
    found_.remedy = remedy;
    // The finding about joined archives is not about an entry.
    const bool isTold = number_ == foundAt_ && !passesEndMarkers_;
    found_.cause = isTold ? "" : entry();
}

/// For a stream that does not begin like a TAR archive.
void TarReader::noteNoArchive(std::size_t length) {
    const char* const message =
        length < tarBlockSize ? "TAR archive has no end marker" : "Invalid TAR header checksum";
    if (length == 0) return note(message, subject_ + ": empty, 0 bytes", Remedy::fetchAgain);
    const FileKind kind = kindOfBytes(std::span(block_).first(length));
    const Remedy remedy = kind.name.empty() ? Remedy::fetchAgain
                          : kind.isReadable ? Remedy::repackForeign
                                            : Remedy::nothing;
    const std::string words =
        kind.name.empty() ? "its first " + bytes(length) + " are no TAR header" : kind.name;
    note(message, subject_ + ": " + words, remedy);
}

void TarReader::noteEnd(std::size_t length) {
    if (number_ == 0) return noteNoArchive(length);
    // Other programs do not need the marker.
    const bool isCut = length != 0;
    if (!isClean() && !isCut) return;
    note("TAR archive has no end marker",
         subject_ + ": ends at byte " + std::to_string(position_) + ", " +
             (isCut ? "inside a header" : "without an end marker"),
         isCut ? Remedy::fetchAgain : Remedy::complete);
}

bool TarReader::isChecksumRight() {
    const auto stored = octal<TarChksum>(block_);
    const std::uint64_t sum = tarHeaderChecksum(block_);
    if (stored == sum) return true;
    constexpr const char* message = "Invalid TAR header checksum";
    if (stored && std::cmp_equal(*stored, signedChecksum(block_))) {
        note(message, where() + "a checksum of signed bytes, as some old programs wrote",
             Remedy::convert);
        return true;
    }
    const bool hasMagic =
        std::equal(TarMagic::in(block_.data()), TarVersion::in(block_.data()) - 1, "ustar");
    if (number_ == 1 && !hasMagic && !stored) {
        noteNoArchive(block_.size());
    } else if (stored) {
        note(message,
             where() + "its checksum is " + inOctal(*stored) + ", its bytes give " + inOctal(sum),
             Remedy::fetchAgain);
    } else {
        const std::string at = std::to_string(position_ - tarBlockSize);
        note(message, subject_ + ", byte " + at + ": no TAR header is where one is due",
             Remedy::fetchAgain);
    }
    return false;
}

/// Whether the name leads through a symbolic link of the archive, which other programs may follow.
bool TarReader::isBehindLink(const std::string& name) {
    constexpr std::size_t mostLinks = 100'000;
    if (typeflag() == '2' && links_.size() < mostLinks) links_.insert(name);
    for (std::size_t slash = name.find('/'); slash != std::string::npos && !links_.empty();
         slash = name.find('/', slash + 1)) {
        if (links_.contains(name.substr(0, slash))) return true;
    }
    return false;
}

void TarReader::checkName() {
    // In headers of other formats the name means nothing.
    if (!isClean() && isExtension(typeflag())) return;
    std::string name = pending_.name.value_or(tarReadEntryName(block_));
    while (name.ends_with('/'))
        name.pop_back();
    const Trouble trouble = nameTrouble(name);
    if (!trouble.words.empty())
        note("Unsafe TAR entry name", where() + trouble.words, trouble.remedy);
    if (isBehindLink(name)) worsen(Remedy::distrust);
    if (!fitsHeader(name))
        worsen(Remedy::unpackElsewhere);
    else if (typeflag() == tarDirectory && !fitsHeader(name + 'x'))
        worsen(Remedy::repack);  // other programs store its slash, too
}

std::optional<std::uint64_t> TarReader::readSize() {
    if (const auto size = octal<TarSize>(block_)) {
        const bool isOverridden = pending_.size && !isExtension(typeflag());
        return isOverridden ? pending_.size : size;
    }
    const ForeignNumber size = foreignNumber<TarSize>(block_);
    const std::string kind = isMade(typeflag()) ? "" : kindTrouble(block_.data()).words + ", ";
    note("Invalid TAR entry size", where() + kind + "its size " + size.words,
         size.value ? Remedy::convert : Remedy::fetchAgain);
    return size.value;
}

/// Skips the blocks that follow the header of a GNU sparse file, if there are any.
bool TarReader::passSparseMap() {
    constexpr std::size_t headerGoesOn = 482;
    constexpr std::size_t mapGoesOn = 504;
    bool goesOn = typeflag() == 'S' && block_.at(headerGoesOn) != 0;
    while (goesOn) {
        Block map{};
        if (stream_.read(map.data(), map.size()) < map.size()) return false;
        position_ += map.size();
        goesOn = map.at(mapGoesOn) != 0;
    }
    return true;
}

bool TarReader::passData(std::uint64_t size) {
    std::uint64_t there = 0;
    if (isExtension(typeflag()) && size <= longestExtension) {
        std::string data(static_cast<std::size_t>(size), '\0');
        there = stream_.read(reinterpret_cast<std::uint8_t*>(data.data()), data.size());
        takeExtension(data);
    } else {
        there = stream_.skip(size);
    }
    if (there == size) {
        position_ += size;
        return true;
    }
    note("Truncated TAR entry",
         where() + bytes(size) + " from byte " + std::to_string(position_) + " on, of which " +
             bytes(size - there) + (size - there == 1 ? " is" : " are") + " missing",
         Remedy::fetchAgain);
    return false;
}

void TarReader::takeExtension(const std::string& data) {
    next_ = std::move(pending_);
    pending_ = {};
    if (typeflag() == 'L') next_.name = data.c_str();
    if (typeflag() != 'x' && typeflag() != 'g') return;
    ExtendedHeader records;
    const bool isWhole = readPaxRecords(data, records);
    if (!isWhole) worsen(Remedy::fetchAgain);
    if (typeflag() == 'g') {
        // Other programs differ in what they apply to all entries.
        if (records.goesBeyondUstar || records.name || records.size) worsen(Remedy::repack);
        return;
    }
    // The same for two headers of one entry.
    if (next_.name || !next_.keys.empty()) worsen(Remedy::repack);
    if (!records.name) records.name = std::move(next_.name);
    if (!records.size) records.size = next_.size;
    records.goesBeyondUstar = records.goesBeyondUstar || next_.goesBeyondUstar;
    next_ = std::move(records);
}

void TarReader::takeKind(std::uint64_t size) {
    const bool isExtended = pending_.goesBeyondUstar || goesBeyondUstar(block_);
    const bool isStored = !isExtension(typeflag()) && typeflag() != gnuVolumeLabel;
    if (isExtended && isStored) worsen(Remedy::repack);
    if (isMade(typeflag())) {
        if (isClean() && visit_)
            visit_({number_, tarReadEntryName(block_), typeflag() == tarDirectory, size});
        return;
    }
    Trouble trouble = kindTrouble(block_.data());
    constexpr std::size_t mostKeys = 40;
    if (typeflag() == 'x' && !next_.keys.empty() && next_.keys.size() <= mostKeys)
        trouble.words += " (" + next_.keys + ")";
    if (isExtension(typeflag()) && size > longestExtension) trouble.remedy = Remedy::fetchAgain;
    note("Unsupported TAR entry type", where() + trouble.words, trouble.remedy);
}

bool TarReader::passPadding(std::uint64_t size) {
    const std::uint64_t padding = tarPaddingAfter(size);
    const std::uint64_t there = stream_.skip(padding);
    position_ += there;
    if (there == padding) return true;
    const bool isFirst = isClean();
    note("Truncated TAR entry padding",
         where() + "all of its " + bytes(size) + ", but not the padding behind",
         isFirst ? Remedy::complete : Remedy::fetchAgain);
    return false;
}

bool TarReader::readEntry() {
    const std::size_t length = stream_.read(block_.data(), block_.size());
    position_ += length;
    if (length < block_.size()) {
        if (!isBehindEnd_) noteEnd(length);
        return false;
    }
    if (isZero(block_)) {
        isBehindEnd_ = true;
        return passesEndMarkers_;
    }
    found_.isJoined = found_.isJoined || isBehindEnd_;
    isBehindEnd_ = false;
    ++number_;
    if (!isChecksumRight()) return false;

    checkName();
    const std::optional<std::uint64_t> size = readSize();
    if (!size || !passSparseMap() || !passData(*size)) return false;
    takeKind(*size);
    return passPadding(*size);
}

}  // namespace

TarReading readTar(ByteSource& stream, const std::string& subject, const TarVisitor& visit) {
    return TarReader(stream, subject, visit, false).read();
}

TarReading readJoinedTars(ByteSource& stream) {
    return TarReader(stream, "", {}, true).read();
}

}  // namespace vesk::explanation
