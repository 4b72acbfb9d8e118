// SPDX-License-Identifier: MIT
// A new directory for one test, and small helpers for files in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace vesk::testing {

/// Makes an empty directory below the system's directory for temporary files. The destructor
/// removes it with all its content.
class TempDir {
public:
    TempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "vesk-test-XXXXXX").native();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        path_ = name;
    }
    ~TempDir() {
        makeRemovable();
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

private:
    // A test may leave directories that an ordinary user cannot change.
    void makeRemovable() {
        namespace fs = std::filesystem;
        std::error_code ignored;
        fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ignored);
        const auto options = fs::directory_options::skip_permission_denied;
        for (fs::recursive_directory_iterator it(path_, options, ignored), end; it != end;
             it.increment(ignored)) {
            if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
                fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
            }
        }
    }

    std::filesystem::path path_;
};

/// Writes `content` to the file at `path`, with its missing parent directories.
inline void writeFile(const std::filesystem::path& path, std::string_view content) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    if (!file.flush()) throw std::runtime_error("cannot write " + path.native());
}

/// Returns the whole content of the file at `path`; throws when it cannot be read.
inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path.native());
    std::ostringstream content;
    content << file.rdbuf();
    return std::move(content).str();
}

}  // namespace vesk::testing
