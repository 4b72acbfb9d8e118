// SPDX-License-Identifier: MIT
// Creating the entries of an archive in memory only.
#include "explanation/entry_conflict.h"

#include <filesystem>
#include <unordered_map>

#include "explanation/tar_reading.h"
#include "explanation/text.h"

namespace vesk::explanation {

namespace {

/// Limits the memory. Conflicts with later names are not found.
constexpr std::size_t mostNames = 1'000'000;

/// The unit in which usual file systems allocate space, in bytes.
constexpr std::uint64_t diskBlock = 4096;

struct Made {
    std::uint64_t number = 0;  ///< of the first entry that created it
    bool isDirectory = false;
};

class Maker {
public:
    void make(const TarEntry& entry) {
        addRoom(entry);
        if (!made_.message.empty() || names_.size() >= mostNames) return;
        const std::string name = std::filesystem::path(entry.name).lexically_normal();
        for (std::size_t slash = name.find('/'); slash != std::string::npos;
             slash = name.find('/', slash + 1)) {
            if (!makeOne(entry, name.substr(0, slash), true)) return;
        }
        makeOne(entry, name, entry.isDirectory);
    }

    MadeEntries result() const {
        MadeEntries made = made_;
        made.count = names_.size();
        return made;
    }

private:
    bool makeOne(const TarEntry& entry, const std::string& name, bool isDirectory);
    void addRoom(const TarEntry& entry);

    std::unordered_map<std::string, Made> names_;
    MadeEntries made_;
};

std::string where(const TarEntry& entry) {
    return "entry " + std::to_string(entry.number) + ", " + inQuotes(entry.name) + ": ";
}

void Maker::addRoom(const TarEntry& entry) {
    if (entry.isDirectory) return;
    made_.room += (entry.size + diskBlock - 1) / diskBlock * diskBlock;
    if (entry.size <= made_.largest) return;
    made_.largest = entry.size;
    made_.largestWhere = where(entry) + bytes(entry.size);
}

bool Maker::makeOne(const TarEntry& entry, const std::string& name, bool isDirectory) {
    const auto [place, isNew] = names_.try_emplace(name, Made{entry.number, isDirectory});
    const Made& there = place->second;
    if (isNew || there.isDirectory == isDirectory) return true;
    const bool isInWay = !there.isDirectory;  // a file where a directory is needed
    made_.message = !isInWay            ? "Cannot write TAR entry"
                    : entry.isDirectory ? "Cannot create TAR directory"
                                        : "Cannot create TAR entry directory";
    made_.conflict = where(entry) + (isInWay ? "entry " : "a directory since entry ") +
                     std::to_string(there.number) +
                     (isInWay ? " has made " + inQuotes(name) + " a file" : "");
    return false;
}

}  // namespace

MadeEntries readMadeEntries(ByteSource& stream) {
    Maker maker;
    readTar(stream, "", [&](const TarEntry& entry) { maker.make(entry); });
    return maker.result();
}

}  // namespace vesk::explanation
