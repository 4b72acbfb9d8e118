// SPDX-License-Identifier: MIT
// The second reader of TAR archives.
#include "fuzz/tar_model.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

namespace vesk::fuzzing {

namespace {

using namespace std::string_view_literals;

constexpr std::string_view blanks = "\0 "sv;

std::string_view upToNul(std::string_view field) {
    return field.substr(0, field.find('\0'));
}

std::string entryName(std::string_view block) {
    const std::string_view prefix = upToNul(block.substr(345, 155));
    std::string name;
    if (!prefix.empty()) name = std::string(prefix) + "/";
    name += upToNul(block.substr(0, 100));
    name.erase(name.find_last_not_of('/') + 1);
    return name;
}

bool hasRightChecksum(std::string_view block) {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < 512; ++i) {
        const bool inChksum = i >= 148 && i <= 155;
        sum += inChksum ? 32 : static_cast<unsigned char>(block[i]);
    }
    return expectedOctal(block.substr(148, 8)) == sum;
}

// The destination as a map from relative paths to what is there.
class ModelTree {
public:
    // False when a file is in the way.
    bool makeDirectories(const std::vector<std::string>& components, std::size_t count) {
        std::string path;
        for (std::size_t i = 0; i < count; ++i) {
            if (i > 0) path += '/';
            path += components[i];
            if (files_.contains(path)) return false;
            directories_.insert(path);
        }
        return true;
    }

    // False when a directory is in the way.
    bool writeFile(const std::vector<std::string>& components, std::string_view data) {
        std::string path;
        for (const std::string& component : components)
            path.append(path.empty() ? "" : "/").append(component);
        if (directories_.contains(path)) return false;
        files_[path] = data;
        return true;
    }

    testing::Tree asTree() const {
        testing::Tree tree(files_.begin(), files_.end());
        for (const std::string& directory : directories_) {
            if (isEmpty(directory)) tree[directory + "/"] = "";
        }
        return tree;
    }

private:
    bool isEmpty(const std::string& directory) const {
        const std::string below = directory + "/";
        const auto file = files_.lower_bound(below);
        const auto inner = directories_.lower_bound(below);
        return (file == files_.end() || !file->first.starts_with(below)) &&
               (inner == directories_.end() || !inner->starts_with(below));
    }

    std::map<std::string, std::string> files_;
    std::set<std::string> directories_;
};

// Makes one entry. Returns the message of a failure, or an empty text.
std::string makeEntry(ModelTree& tree, char typeflag, const std::vector<std::string>& components,
                      std::string_view data) {
    if (typeflag == '5') {
        if (!tree.makeDirectories(components, components.size()))
            return "Cannot create TAR directory";
        return "";
    }
    if (typeflag != '0' && typeflag != '\0') return "Unsupported TAR entry type";
    if (!tree.makeDirectories(components, components.size() - 1))
        return "Cannot create TAR entry directory";
    if (!tree.writeFile(components, data)) return "Cannot write TAR entry";
    return "";
}

// Reads the entry at `position` and moves that past it. Returns the message of a failure, or an
// empty text.
std::string readEntry(ModelTree& tree, std::string_view archive, std::size_t& position) {
    const std::string_view block = archive.substr(position, 512);
    if (!hasRightChecksum(block)) return "Invalid TAR header checksum";

    const auto components = expectedComponents(entryName(block));
    if (!components) return "Unsafe TAR entry name";

    const auto size = expectedOctal(block.substr(124, 12));
    if (!size) return "Invalid TAR entry size";
    const std::uint64_t left = archive.size() - position - 512;
    if (*size > left) return "Truncated TAR entry";

    const std::string_view data = archive.substr(position + 512, static_cast<std::size_t>(*size));
    const std::string message = makeEntry(tree, block[156], *components, data);
    if (!message.empty()) return message;

    const std::uint64_t padded = (*size + 511) / 512 * 512;
    if (padded > left) return "Truncated TAR entry padding";
    position += static_cast<std::size_t>(512 + padded);
    return "";
}

}  // namespace

std::optional<std::uint64_t> expectedOctal(std::string_view field) {
    const std::size_t first = field.find_first_not_of(blanks);
    if (first == std::string_view::npos) return std::nullopt;
    std::string_view digits = field.substr(first, field.find_last_not_of(blanks) + 1 - first);
    if (digits.find_first_not_of("01234567") != std::string_view::npos) return std::nullopt;

    digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
    // 64 bits are one bit and 21 digits of three bits.
    if (digits.size() > 22 || (digits.size() == 22 && digits[0] > '1')) return std::nullopt;
    std::uint64_t value = 0;
    for (const char digit : digits)
        value = value << 3 | static_cast<unsigned>(digit - '0');
    return value;
}

std::optional<std::vector<std::string>> expectedComponents(std::string_view name) {
    if (name.empty() || name[0] == '/') return std::nullopt;
    if (name.find_first_of("\\:\0"sv) != std::string_view::npos) return std::nullopt;

    std::vector<std::string> components;
    std::istringstream parts{std::string(name)};
    std::string last;
    for (std::string part; std::getline(parts, part, '/'); last = part) {
        if (part.empty() || part == ".") continue;
        if (part != "..") {
            components.push_back(part);
        } else if (components.empty()) {
            return std::nullopt;
        } else {
            components.pop_back();
        }
    }
    // A name that ends in "." or ".." names a directory by another name than its own.
    if (last == "." || last == "..") return std::nullopt;
    return components;
}

Expected expectedExtraction(std::string_view archive) {
    ModelTree tree;
    std::size_t position = 0;
    while (archive.size() - position >= 512) {
        const std::string_view block = archive.substr(position, 512);
        if (block.find_first_not_of('\0') == std::string_view::npos) return {"", tree.asTree()};

        const std::string message = readEntry(tree, archive, position);
        if (!message.empty()) return {message, {}};
    }
    return {"TAR archive has no end marker", {}};
}

}  // namespace vesk::fuzzing
