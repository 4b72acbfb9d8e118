// SPDX-License-Identifier: MIT
// Random entries, one of which may be invalid; then the stream or the member as a whole.
#include "tests/sandbox/random_archive.h"

#include <vector>

#include "tests/support/gzip_bytes.h"
#include "tests/support/tar_bytes.h"

namespace vesk::testing {

namespace {

/// How a name is written in the archive, and its path after extraction.
struct EntryName {
    std::string written;
    std::string path;
};

/// No path is a file in one row and a directory in another.
const EntryName& randomEntryName(RandomSource& random) {
    static const EntryName names[] = {
        {"new", "new"},
        {"d/new", "d/new"},
        {"d/e/new", "d/e/new"},
        {"d//second", "d/second"},
        {"./third", "third"},
        {"d/./../fourth", "fourth"},
        {"with space", "with space"},
        {"e/-rf", "e/-rf"},
        {"e/\xFF\n", "e/\xFF\n"},
        {"e/" + std::string(98, 'L'), "e/" + std::string(98, 'L')},
    };
    return random.oneOf(names);
}

const EntryName& randomDirectoryName(RandomSource& random) {
    static const EntryName names[] = {
        {"d/", "d"}, {"d/empty/", "d/empty"}, {"hollow", "hollow"}, {"e/f/g/", "e/f/g"}};
    return random.oneOf(names);
}

void addToTree(Snapshot& tree, const std::string& path, mode_t type, const std::string& content) {
    for (std::string above = parentOf(path); !above.empty(); above = parentOf(above))
        tree[above].mode = S_IFDIR;
    Thing& thing = tree[path];
    thing.mode = type;
    thing.content = content;
}

/// Entries that make an archive invalid, wherever they are in the stream.
struct Damage {
    const char* name;
    std::string entry;
};

const Damage& randomDamage(RandomSource& random) {
    static const Damage all[] = {
        {"a bad checksum", patched(tarHeader("damaged"), 3, "?")},
        {"a size that is no number", sealed(patched(tarHeader("damaged"), 124, "1x"))},
        {"a name that climbs out", tarEntry("../damaged", "x")},
        {"a name that climbs out by way of a directory", tarEntry("d/../../damaged", "x")},
        {"an absolute name", tarEntry("/damaged", "x")},
        {"a name with a colon", tarEntry("c:damaged", "x")},
        {"a name with a backslash", tarEntry("..\\damaged", "x")},
        {"a symbolic link", tarEntry("damaged", "", '2')},
        {"a hard link", tarEntry("damaged", "", '1')},
        {"a FIFO", tarEntry("damaged", "", '6')},
        {"a file below a file", tarEntry("file", "x") + tarEntry("file/x", "x")},
        {"a directory in place of a file", tarEntry("file", "x") + tarEntry("file/", "", '5')},
        {"a file in place of a directory", tarEntry("dir/", "", '5') + tarEntry("dir", "x")},
        {"an end inside a file", tarHeader("damaged", 1U << 20)},
    };
    return random.oneOf(all);
}

std::string randomEntries(RandomSource& random, Snapshot& tree) {
    std::string stream;
    for (std::size_t count = random.below(6); count > 0; --count) {
        const bool isDirectory = random.chance(25);
        const EntryName& name = isDirectory ? randomDirectoryName(random) : randomEntryName(random);
        const std::string content(isDirectory ? 0 : random.below(1500),
                                  static_cast<char>('0' + count));
        addToTree(tree, name.path, isDirectory ? S_IFDIR : S_IFREG, content);
        stream += tarEntry(name.written, content, isDirectory ? '5' : '0');
    }
    return stream;
}

/// Cuts the stream before its end marker is complete, or puts an invalid entry into it.
void damageStream(RandomSource& random, ArchiveToUnpack& archive) {
    if (random.chance(25)) {
        archive.damage = "a cut";
        archive.bytes.resize(random.below(archive.bytes.size()));
        return;
    }
    const Damage& damage = randomDamage(random);
    archive.damage = damage.name;
    archive.bytes.resize(archive.bytes.size() - 512);
    Snapshot unused;
    archive.bytes += damage.entry + randomEntries(random, unused) + tarEnd();
}

void damageMember(RandomSource& random, ArchiveToUnpack& archive) {
    switch (random.below(3)) {
        case 0:
            archive.damage = "a cut of the member";
            archive.bytes.resize(random.below(archive.bytes.size()));
            return;
        case 1:
            archive.damage = "a wrong CRC";
            archive.bytes[archive.bytes.size() - 6] ^= 1;
            return;
        default:
            archive.damage = "something after the member";
            archive.bytes += "12345678";
    }
}

}  // namespace

ArchiveToUnpack randomArchive(RandomSource& random) {
    ArchiveToUnpack archive;
    archive.container = random.chance(35) ? Container::tgz : Container::tar;
    archive.bytes = randomEntries(random, archive.tree) + tarEnd();
    const bool isTgz = archive.container == Container::tgz;
    const bool isDamaged = random.chance(33);
    const bool isDamagedMember = isTgz && isDamaged && random.chance(50);
    if (isDamaged && !isDamagedMember) damageStream(random, archive);
    if (isTgz) archive.bytes = gzipMember(archive.bytes);
    if (isDamagedMember) damageMember(random, archive);
    return archive;
}

ArchiveToUnpack plainArchive(bool isCut) {
    ArchiveToUnpack archive;
    archive.bytes = tarEntry("new", "new") + tarEntry("sub/", "", '5');
    if (!isCut) archive.bytes += tarEnd();
    archive.damage = isCut ? "a cut" : "";
    addToTree(archive.tree, "new", S_IFREG, "new");
    addToTree(archive.tree, "sub", S_IFDIR, "");
    return archive;
}

}  // namespace vesk::testing
