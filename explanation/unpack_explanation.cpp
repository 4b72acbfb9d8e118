// SPDX-License-Identifier: MIT
// Why an archive was not unpacked. The messages are in the order of the module's checks.
#include "explanation/unpack_explanation.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

#include "explanation/advice.h"
#include "explanation/byte_source.h"
#include "explanation/entry_conflict.h"
#include "explanation/gzip_reading.h"
#include "explanation/gzip_source.h"
#include "explanation/path_state.h"
#include "explanation/staging_explanation.h"
#include "explanation/tar_reading.h"
#include "explanation/text.h"

namespace vesk::explanation {

namespace {

using Lines = std::vector<std::string>;

/// The decoded content of all members of the archive, even if it is faulty.
std::unique_ptr<GzipSource> openContent(const FailedCall& call) {
    std::unique_ptr<FileSource> file = FileSource::open(call.archive);
    return file ? std::make_unique<GzipSource>(std::move(file)) : nullptr;
}

/// The TAR stream that the module read; null if the archive can no longer be decoded.
std::unique_ptr<ByteSource> openStream(const FailedCall& call) {
    std::unique_ptr<FileSource> file = FileSource::open(call.archive);
    if (!file || !call.isGzip) return file;
    return readGzip(*file, "").message.empty() ? openContent(call) : nullptr;
}

std::string subjectOf(const FailedCall& call) {
    return inQuotes(call.archive) + (call.isGzip ? ", decompressed" : "");
}

Lines withAdvice(const std::string& finding, Remedy remedy, const FailedCall& call,
                 const std::string& cause = "") {
    // What was read from a device such as /dev/stdin is gone.
    Lines lines = call.archive.starts_with("/dev/") ? Lines() : advice(remedy, call, cause);
    lines.insert(lines.begin(), finding);
    return lines;
}

Lines withAdvice(const TarReading& reading, const FailedCall& call) {
    return withAdvice(reading.finding, reading.remedy, call, reading.cause);
}

std::string unpacking(const FailedCall& call, const std::string& options) {
    return "to unpack it: vesk-archive unpack " + options + shellWord(call.archive) + " " +
           shellWord(call.tree);
}

/// For an archive whose format is not the requested one.
bool beginsAsGzip(const FailedCall& call) {
    const auto file = FileSource::open(call.archive);
    std::array<std::uint8_t, 2> magic{};
    return file && file->read(magic.data(), magic.size()) == magic.size() && magic[0] == 0x1F &&
           magic[1] == 0x8B;
}

Lines explainStream(const FailedCall& call) {
    const auto stream = openStream(call);
    if (!stream) return {};
    const TarReading reading = readTar(*stream, subjectOf(call));
    if (reading.message != call.message) return {};
    if (!call.isGzip && beginsAsGzip(call)) return {reading.finding, unpacking(call, "")};
    return withAdvice(reading, call);
}

std::string cutting(const FailedCall& call, std::uint64_t length) {
    return "to cut that off: head -c " + std::to_string(length) + " " + shellWord(call.archive) +
           " > " + shellWord(freshArchive(call.archive, "-cut"));
}

std::string joining(const FailedCall& call) {
    return "to make it one: gzip -dc " + shellWord(call.archive) + " | gzip > " +
           shellWord(freshArchive(call.archive, "-joined"));
}

/// What helps if all that is wrong with the members is that there are several, or what is behind.
Lines explainJoining(const FailedCall& call, const GzipReading& found, bool isJoined) {
    if (isJoined) return withAdvice(found.finding, Remedy::repackJoined, call);
    const bool isOne = found.cause != GzipReading::Cause::members;
    return {found.finding, isOne ? cutting(call, found.end) : joining(call)};
}

/// For a complete member with something behind it, which may not be the only fault.
Lines explainBehind(const FailedCall& call, const GzipReading& found) {
    const auto content = openContent(call);
    if (!content) return {};
    const TarReading inner = readJoinedTars(*content);
    content->skip(mostDecoded);
    if (content->isDamaged()) return withAdvice(found.finding, Remedy::fetchAgain, call);
    if (inner.message.empty()) return explainJoining(call, found, inner.isJoined);
    if (!inner.isJoined || inner.remedy > Remedy::unpackElsewhere)
        return withAdvice(found.finding, inner.remedy, call, inner.cause);
    if (inner.remedy <= Remedy::repack)
        return withAdvice(found.finding, Remedy::repackJoined, call);
    return {found.finding, "to unpack it: " + unpackingElsewhere(call, "tar -ixf")};
}

Lines explainMember(const FailedCall& call) {
    const auto file = call.isGzip ? FileSource::open(call.archive) : nullptr;
    if (!file) return {};
    const GzipReading found = readGzip(*file, inQuotes(call.archive));
    if (found.message != call.message) return {};
    switch (found.cause) {
        case GzipReading::Cause::plainTar:
            return {found.finding, unpacking(call, "--format tar ")};
        case GzipReading::Cause::foreign:
            return withAdvice(found.finding, Remedy::repackForeign, call);
        case GzipReading::Cause::noGzip:
            return {found.finding};
        case GzipReading::Cause::members:
        case GzipReading::Cause::padding:
        case GzipReading::Cause::appendage:
            return explainBehind(call, found);
        case GzipReading::Cause::tooLarge:
            return withAdvice(found.finding, Remedy::unpackElsewhere, call);
        default:
            return withAdvice(found.finding, Remedy::fetchAgain, call);
    }
}

/// For an entry that could not be created or written.
Lines explainEntry(const FailedCall& call) {
    const auto stream = openStream(call);
    if (!stream) return {};
    const MadeEntries made = readMadeEntries(*stream);
    if (made.message == call.message)
        return {made.conflict, "no tree can hold both: the archive must be recreated"};
    if (!made.message.empty()) return {};
    const bool isWriting = call.message == "Cannot finalize TAR entry";
    if (const auto limit = fileSizeLimit(); isWriting && limit && *limit < made.largest)
        return {made.largestWhere + ", and a file may have " + std::to_string(*limit) + " here",
                "to lift that limit: ulimit -f unlimited"};
    if (const std::string trouble = roomTrouble(call.tree, made.room, made.count); !trouble.empty())
        return {trouble, "free some, or unpack to another file system"};
    return {};
}

Lines explainUnreadable(const FailedCall& call) {
    const std::string trouble = accessTrouble(call.archive, false);
    if (trouble.empty()) return {};
    return {trouble, permitting(call.archive)};
}

Lines explainMissing(const FailedCall& call) {
    const Lookup found = lookUp(call.archive);
    if (found.error != 0 && call.archive == "-")
        return {"'-' is the name of a file here: archives are not read from standard input"};
    if (found.error != 0)
        return {found.words, "to see what is there: ls -l " + shellWord(found.directory)};
    const std::string kind = kindAt(call.archive);
    if (kind.starts_with("a regular")) return {};
    return {inQuotes(call.archive) + ": " + kind + ", no archive"};
}

Lines explainSize(const FailedCall& call) {
    const auto file = FileSource::open(call.archive);
    if (!file || file->size() < mostDecoded) return {};
    const std::string words = inQuotes(call.archive) + ": " + bytes(file->size()) +
                              ", of which at most 4294967295 can be read";
    return {words, "to unpack it: " + unpackingElsewhere(call)};
}

/// For a member whose content does not fit into memory.
Lines explainMemory(const FailedCall& call) {
    const auto content = call.isGzip ? openContent(call) : nullptr;
    if (!content) return {};
    const std::uint64_t length = content->skip(mostDecoded);
    return {inQuotes(call.archive) + ": decodes to " + bytes(length) + ", which are held in memory",
            "to unpack it: " + unpackingElsewhere(call)};
}

Lines explainNoArchiveName(const FailedCall& /*call*/) {
    return {"the word for ARCHIVE is empty: is a variable in it not set?"};
}

Lines explainNoDestinationName(const FailedCall& /*call*/) {
    return {"the word for DESTINATION is empty: is a variable in it not set?"};
}

struct Explanation {
    std::string_view message;
    Lines (*explain)(const FailedCall&);
};

constexpr auto explanations = std::to_array<Explanation>({
    {"Archive path is required", explainNoArchiveName},
    {"Archive file does not exist", explainMissing},
    {"ZIP entry is too large for ZIP32", explainSize},
    {"Destination path is required", explainNoDestinationName},
    {"Cannot create TAR directory", explainEntry},
    {"Cannot create TAR entry directory", explainEntry},
    {"Cannot write TAR entry", explainEntry},
    {"Cannot finalize TAR entry", explainEntry},
    {"Cannot store DEFLATE output", explainMemory},
});

}  // namespace

std::vector<std::string> explainUnpacking(const FailedCall& call) {
    const std::string& message = call.message;
    const auto* const known =
        std::find_if(explanations.begin(), explanations.end(),
                     [&](const Explanation& one) { return one.message == message; });
    if (known != explanations.end()) return known->explain(call);
    if (message.starts_with("Cannot read file: ")) return explainUnreadable(call);
    if (message.find("TAR") != std::string::npos) return explainStream(call);
    const bool isMember =
        message.find("gzip") != std::string::npos || message.find("DEFLATE") != std::string::npos;
    return isMember ? explainMember(call) : explainStaging(call);
}

}  // namespace vesk::explanation
