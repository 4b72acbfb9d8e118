// SPDX-License-Identifier: MIT
// Staged extraction: a directory beside the destination that becomes the destination on commit.
#include <cstdlib>
#include <optional>
#include <string>
#include <system_error>

#include "module/host/host_runtime.h"
#include "standinhost/staging_name.h"
#include "standinhost/standin_host.h"
#include "standinhost/tree_placement.h"

namespace {

namespace fs = std::filesystem;
using vesk::standin::Placement;

/// The calling thread's staging directory, empty when it has none.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): one for each thread
thread_local std::string openStaging;

/// What a destination path stands for: the path to be created or replaced, and whether it is taken.
struct Destination {
    fs::path target;
    bool exists;
};

/// Drops the slashes and dots at the end, which would make the system follow a symbolic link there.
fs::path withoutTrailingDots(fs::path path) {
    while ((!path.has_filename() || path.filename() == ".") && !path.parent_path().empty() &&
           path.has_relative_path())
        path = path.parent_path();
    return path;
}

bool leadsNowhere(const std::error_code& error) {
    return error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory ||
           error == std::errc::too_many_symbolic_link_levels;
}

/// Finds out what is at `path`; nothing when that cannot be told. A symbolic link stands for what
/// it points at, or for itself if it leads nowhere; other paths stay as they are, relative ones
/// too.
std::optional<Destination> inspect(const fs::path& path) {
    const fs::path entry = withoutTrailingDots(path);
    std::error_code error;
    const fs::file_status status = fs::symlink_status(entry, error);
    if (status.type() == fs::file_type::none) return std::nullopt;

    const bool nameless = entry.filename() == "." || entry.filename() == "..";
    if (!fs::is_symlink(status) && !nameless) return Destination{entry, fs::exists(status)};

    fs::path resolved = fs::canonical(entry, error);
    if (!error) return Destination{std::move(resolved), true};
    if (fs::is_symlink(status) && leadsNowhere(error)) return Destination{entry, true};
    return std::nullopt;
}

bool createParents(const fs::path& target) {
    std::error_code error;
    if (target.has_parent_path()) fs::create_directories(target.parent_path(), error);
    return !error;
}

/// Creates the staging directory beside `target`; nothing on failure. The root directory has no
/// place beside it.
std::optional<fs::path> createStaging(const fs::path& target, bool overwrite) {
    if (!target.has_filename()) return std::nullopt;
    // Noted from the moment it exists: no lack of memory between the two can lose it.
    openStaging = vesk::standin::stagingPattern(target, overwrite).native();
    if (mkdtemp(openStaging.data()) != nullptr) return openStaging;
    openStaging.clear();
    return std::nullopt;
}

/// Prepares staging. Returns the message of a failure, null when there is none.
const char* prepare(const fs::path& path, bool overwrite, fs::path& staging) {
    const std::optional<Destination> destination = inspect(path);
    if (!destination) return "Cannot inspect destination";
    if (destination->exists && !overwrite) return "Destination already exists";
    if (!createParents(destination->target)) return "Cannot create destination parent directory";

    const std::optional<fs::path> created = createStaging(destination->target, overwrite);
    if (!created) return "Cannot create staging directory";
    staging = *created;
    return nullptr;
}

/// The permissions that a directory created at `probe` gets: all less the umask, or what the parent
/// directory prescribes. Reading the umask itself would change it for the other threads.
std::optional<fs::perms> ordinaryPermissions(const fs::path& probe) {
    std::error_code error;
    if (!fs::create_directory(probe, error)) return std::nullopt;
    const fs::perms permissions = fs::status(probe, error).permissions();
    std::error_code ignored;
    fs::remove(probe, ignored);
    if (error) return std::nullopt;
    return permissions;
}

/// Gives the staging directory, so far its owner's only, the permissions of any other directory.
bool openToOthers(const fs::path& staging, const fs::path& target) {
    const std::optional<fs::perms> permissions =
        ordinaryPermissions(vesk::standin::permissionProbePath(target, staging));
    if (!permissions) return false;
    std::error_code error;
    fs::permissions(staging, *permissions, error);
    return !error;
}

Placement place(const fs::path& staging, const fs::path& target) {
    if (!vesk::standin::stagingReplaces(staging))
        return vesk::standin::placeNewTree(staging, target);
    const fs::path aside = vesk::standin::replacedTreePath(target, staging);
    return vesk::standin::replaceTree(staging, target, aside);
}

/// Commits staging. Returns the message of a failure, null when there is none.
const char* commit(const fs::path& staging, const fs::path& path) {
    const std::optional<Destination> destination = inspect(path);
    const bool ready = destination && openToOthers(staging, destination->target);
    const Placement placed = ready ? place(staging, destination->target) : Placement::failed;
    if (placed == Placement::targetExists) return "Destination already exists";
    return placed == Placement::done ? nullptr : "Cannot move extracted files to destination";
}

/// Stores `message`, if there is one, as the error; true when there is none.
bool succeeded(const char* message, std::string& error) {
    if (message != nullptr) error = message;
    return message == nullptr;
}

}  // namespace

bool vesk::runtime::archives::prepareExtractionStaging(const fs::path& destination, bool overwrite,
                                                       fs::path& staging, std::string& error) {
    return succeeded(prepare(destination, overwrite, staging), error);
}

bool vesk::runtime::archives::commitExtractionStaging(const fs::path& staging,
                                                      const fs::path& destination,
                                                      std::string& error) {
    const bool committed = succeeded(commit(staging, destination), error);
    if (committed) openStaging.clear();
    return committed;
}

void vesk::runtime::archives::removeExtractionTree(const fs::path& staging) {
    std::error_code ignored;
    fs::remove_all(staging, ignored);
    openStaging.clear();
}

void vesk::standin::abandonStaging() {
    // An empty path names nothing, so there is nothing to remove then.
    runtime::archives::removeExtractionTree(openStaging);
}
