// SPDX-License-Identifier: MIT
// Describing an entry that is refused.
#include "explanation/entry_kind.h"

#include <algorithm>
#include <filesystem>

#include "explanation/text.h"
#include "tar/entry_name.h"

namespace vesk::explanation {

namespace {

using namespace vesk::io::archives;

std::string linkTarget(const std::uint8_t* block) {
    const std::uint8_t* const begin = TarLinkname::in(block);
    return inQuotes(std::string(begin, std::find(begin, begin + TarLinkname::width, 0)));
}

std::string unknownKind(std::uint8_t typeflag) {
    const bool isVisible = typeflag > ' ' && typeflag < 0x7F;
    return "an entry of the unknown type " +
           (isVisible ? inQuotes(std::string(1, static_cast<char>(typeflag)))
                      : std::to_string(typeflag));
}

bool hasElement(const std::string& name, const std::string& element) {
    return ("/" + name + "/").find("/" + element + "/") != std::string::npos;
}

}  // namespace

Trouble kindTrouble(const std::uint8_t* block) {
    const std::uint8_t typeflag = *TarTypeflag::in(block);
    switch (typeflag) {
        case '1':
            return {"a hard link to " + linkTarget(block), Remedy::unpackElsewhere};
        case '2':
            return {"a symbolic link to " + linkTarget(block), Remedy::unpackElsewhere};
        case '3':
            return {"a character device", Remedy::unpackElsewhere};
        case '4':
            return {"a block device", Remedy::unpackElsewhere};
        case '6':
            return {"a FIFO", Remedy::unpackElsewhere};
        case '7':
            return {"a contiguous file", Remedy::convert};
        case 'x':
            return {"a pax header", Remedy::convert};
        case 'g':
            return {"a global pax header, as git archive writes", Remedy::convert};
        case 'L':
            return {"a GNU header of a long name", Remedy::convert};
        case 'K':
            return {"a GNU header of a long link target", Remedy::unpackElsewhere};
        case 'S':
            return {"a GNU sparse file", Remedy::repack};
        case 'D':
            return {"a directory of an incremental GNU archive", Remedy::convert};
        case 'V':
            return {"a GNU volume label", Remedy::convert};
        case 'M':
            return {"the rest of a file that begins in another volume", Remedy::fetchAgain};
        default:
            return {unknownKind(typeflag), Remedy::fetchAgain};
    }
}

Trouble nameTrouble(const std::string& name) {
    if (tarIsSafeEntryName(name)) return {};
    if (name.empty()) return {"its name is empty, or only slashes", Remedy::fetchAgain};
    if (hasElement(name, "..")) {
        const std::string normal = std::filesystem::path(name).lexically_normal();
        const bool leadsOut = normal == ".." || normal.starts_with("../");
        return {leadsOut ? "its '..' leads out of the destination" : "a name that goes by '..'",
                Remedy::distrust};
    }
    if (name.front() == '/')
        return {"an absolute name, which leads out of the destination", Remedy::repack};
    if (name.find('\\') != std::string::npos)
        return {"a name with a backslash, which some systems take for '/'",
                Remedy::unpackElsewhere};
    if (name.find(':') != std::string::npos)
        return {"a name with a colon, which some systems take for a drive's",
                Remedy::unpackElsewhere};
    if (name.find_first_not_of("./") == std::string::npos)
        return {"the destination itself, as 'tar -cf ARCHIVE .' stores it", Remedy::repack};
    return {"a name that ends in '.'", Remedy::repack};
}

bool fitsHeader(const std::string& name) {
    if (name.size() <= TarName::width) return true;
    const std::size_t slash = name.rfind('/', TarPrefix::width);
    return slash != std::string::npos && slash != 0 && name.size() - slash - 1 <= TarName::width;
}

}  // namespace vesk::explanation
