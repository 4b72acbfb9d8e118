// SPDX-License-Identifier: MIT
// What to do about an archive that is refused.
#include "explanation/advice.h"

#include <sys/stat.h>

#include <string_view>

#include "explanation/text.h"

namespace vesk::explanation {

namespace {

bool isThere(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

std::string freshName(const std::string& stem, const std::string& ending) {
    std::string name = stem + ending;
    for (int number = 2; isThere(name); ++number)
        name = std::string(stem).append(std::to_string(number)).append(ending);
    return name;
}

std::string freshDirectory(const std::string& destination) {
    std::string stem = destination;
    while (stem.size() > 1 && stem.ends_with('/'))
        stem.pop_back();
    return isThere(stem) ? freshName(stem + "-new", "") : stem;
}

std::string endingOf(const std::string& archive) {
    for (const std::string_view known : {".tar", ".tgz", ".tar.gz"}) {
        if (archive.size() > known.size() && archive.ends_with(known)) return std::string(known);
    }
    return "";
}

/// The name for an archive converted to a format that the module reads.
std::string convertedArchive(const FailedCall& call) {
    const bool isKnown = !endingOf(call.archive).empty();
    return shellWord(freshArchive(call.archive, "-ustar",
                                  isKnown       ? ""
                                  : call.isGzip ? ".tgz"
                                                : ".tar"));
}

std::string conversion(const FailedCall& call) {
    const char* const options = call.isGzip ? " -czf " : " -cf ";
    return "bsdtar --format=ustar" + std::string(options) + convertedArchive(call) + " " +
           shellWord("@" + unmistakable(call.archive));
}

std::string ended(const FailedCall& call) {
    const std::string word = shellWord(call.archive);
    const std::string whole = call.isGzip ? "gzip -dc " + word : "cat " + word;
    return "(" + whole + "; head -c 2048 /dev/zero) > " +
           shellWord(freshArchive(call.archive, "-ended", ".tar"));
}

std::vector<std::string> repacking(const FailedCall& call, const std::string& program) {
    return {"to unpack it: " + unpackingElsewhere(call, program),
            "to convert it then: vesk-archive make " + shellWord(freshDirectory(call.tree)) + " " +
                convertedArchive(call)};
}

}  // namespace

std::string freshArchive(const std::string& archive, const std::string& mark,
                         const std::string& ending) {
    const std::string own = endingOf(archive);
    return freshName(archive.substr(0, archive.size() - own.size()) + mark,
                     ending.empty() ? own : ending);
}

std::string unpackingElsewhere(const FailedCall& call, const std::string& program) {
    const std::string directory = shellWord(freshDirectory(call.tree));
    return "mkdir -p " + directory + " && " + program + " " + shellWord(call.archive) + " -C " +
           directory;
}

std::vector<std::string> advice(Remedy remedy, const FailedCall& call, const std::string& cause) {
    switch (remedy) {
        case Remedy::convert:
            return {"to convert it: " + conversion(call)};
        case Remedy::repack:
            return repacking(call, "tar -xf");
        case Remedy::repackJoined:
            return repacking(call, "tar -ixf");
        case Remedy::repackForeign:
            return repacking(call, "env LC_ALL=C.UTF-8 bsdtar -xf");
        case Remedy::unpackElsewhere:
            return {"a conversion would lose " + (cause.empty() ? "it" : cause) +
                        "; to unpack it anyway:",
                    unpackingElsewhere(call)};
        case Remedy::complete:
            return {"it was cut off: fetch it again; if nothing else is missing, complete a copy:",
                    ended(call)};
        case Remedy::fetchAgain:
            return {"it is damaged or cut off: fetch it again"};
        case Remedy::distrust:
            return {(cause.empty() ? "" : cause + ": ") +
                    "do not trust it, nor unpack it with other programs"};
        case Remedy::nothing:
            break;
    }
    return {};
}

}  // namespace vesk::explanation
