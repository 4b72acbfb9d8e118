// SPDX-License-Identifier: MIT
// The lines below the summary.
#include "commandline/remarks.h"

#include "commandline/wording.h"
#include "explanation/text.h"

namespace vesk::commandline {

namespace {

/// Appends a line: what happened to entries of one kind, how many there are, and the first.
void add(std::vector<std::string>& lines, const std::string& fate, const std::string& entries,
         const Group& group) {
    if (group.count > 0)
        lines.push_back("  " + fate + ": " + entries + ", first '" +
                        explanation::escaped(group.first) + "'");
}

std::string executablesIn(const SourceFindings& found) {
    return (found.allModesAreKnown ? "" : "at least ") +
           counted(found.executables.count, "file", "files");
}

}  // namespace

std::vector<std::string> remarksOn(const Outcome& outcome) {
    constexpr std::uintmax_t largestUnpacked = 0xFFFFFFFF;
    const SourceFindings& found = outcome.findings;
    std::vector<std::string> lines;
    add(lines, "left out",
        counted(found.directoryLinks.count, "link to a directory", "links to directories"),
        found.directoryLinks);
    add(lines, "left out",
        counted(found.specialFiles.count, "FIFO, socket or device", "FIFOs, sockets or devices"),
        found.specialFiles);
    add(lines, "left out",
        counted(found.emptyDirectories.count, "directory without files",
                "directories without files"),
        found.emptyDirectories);
    add(lines, "stored as files",
        counted(found.fileLinks.count, "link to a file", "links to files"), found.fileLinks);
    add(lines, "no longer executable", executablesIn(found), found.executables);
    add(lines, "refused when unpacked",
        counted(found.refusedNames.count, "name with : or \\", "names with : or \\"),
        found.refusedNames);
    if (outcome.verb == Verb::make && outcome.archiveBytes > largestUnpacked)
        lines.emplace_back("  refused when unpacked: an archive of more than 4294967295 bytes");
    return lines;
}

}  // namespace vesk::commandline
