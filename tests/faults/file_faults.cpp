// SPDX-License-Identifier: MIT
// The wrappers around the C library's file functions that the file streams and std::filesystem of
// the two standard libraries call.
#include "tests/faults/file_faults.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "tests/faults/call_owner.h"

namespace vesk::testing {

namespace {

struct Injection {
    std::string root;
    FileFault fault{};
    std::function<void(const std::string& call)> before;
    FileReport report;
};

Injection& injection() {
    static Injection object;
    return object;
}

// Separate, so that calls before the construction of the object above find it false.
bool armed = false;

std::string pathAt(int descriptor) {
    std::array<char, 4096> path{};
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t length = readlink(link.c_str(), path.data(), path.size());
    return length < 0 ? "?" : std::string(path.data(), static_cast<std::size_t>(length));
}

/// Returns `path` with the directory in place of the descriptor through which the path leads.
std::string withoutDescriptor(const std::string& path) {
    const std::string descriptors = "/proc/" + std::to_string(getpid()) + "/fd/";
    if (!path.starts_with(descriptors)) return path;
    const std::size_t end = std::min(path.find('/', descriptors.size()), path.size());
    return pathAt(std::stoi(path.substr(descriptors.size()))) + path.substr(end);
}

/// Returns the path for a report: below the root, with STAGING for the tree being extracted.
std::string shown(std::string path) {
    path = withoutDescriptor(path);
    const std::string root = injection().root + '/';
    if (path == injection().root) return "ROOT";
    if (path.starts_with(root)) path.erase(0, root.size());
    const std::size_t mark = path.find(".vesk-unpacking-");
    if (mark == std::string::npos) return path;
    const std::size_t begin = path.rfind('/', mark) + 1;
    const std::size_t tree = path.find("/tree", mark) + std::string("/tree").size();
    return path.replace(begin, tree - begin, "STAGING");
}

auto pathOf(int descriptor) {
    return [descriptor] { return pathAt(descriptor); };
}

auto pathOf(const char* path) {
    return [path] { return std::string(path); };
}

/// Records the call that `function` and `path` describe. Returns whether it is the one to fail.
/// Then errno is the fault's error; otherwise it is unchanged.
template <typename Path>
bool isToFail(const char* function, const Path& path) {
    if (!armed) return false;
    const int before = errno;
    armed = false;  // what is called from here is not the module's
    bool chosen = false;
    if (callOwner() == CallOwner::module) {
        Injection& state = injection();
        state.report.calls.push_back(std::string(function) + ' ' + shown(path()));
        if (state.before) state.before(state.report.calls.back());
        chosen = state.report.calls.size() == state.fault.number;
        state.report.fired |= chosen;
    }
    armed = true;
    errno = chosen ? injection().fault.error : before;
    return chosen;
}

/// Returns -1 with the fault's error, although the call has been made: what was to be closed is no
/// longer open.
int failed() {
    errno = injection().fault.error;
    return -1;
}

constexpr std::array seekNames = {"seek", "step", "seek to end"};

/// Returns the C library's own function that the one named `name` replaces.
template <typename Function>
Function* original(Function* /*type*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void armFileFaults(const std::string& root, FileFault fault,
                   std::function<void(const std::string& call)> before) {
    injection() = {root, fault, std::move(before), {}};
    armed = true;
}

FileReport disarmFileFaults() {
    armed = false;
    return std::exchange(injection().report, {});
}

}  // namespace vesk::testing

using namespace vesk::testing;

#define ORIGINAL(name) original(static_cast<decltype(&::name)>(nullptr), #name)

extern "C" {

int stat(const char* path, struct stat* status) noexcept {
    if (isToFail("stat", pathOf(path))) return -1;
    return ORIGINAL(stat)(path, status);
}

int lstat(const char* path, struct stat* status) noexcept {
    if (isToFail("lstat", pathOf(path))) return -1;
    return ORIGINAL(lstat)(path, status);
}

int fstat64(int descriptor, struct stat64* status) noexcept {
    if (isToFail("fstat", pathOf(descriptor))) return -1;
    return ORIGINAL(fstat64)(descriptor, status);
}

int mkdir(const char* path, mode_t mode) noexcept {
    if (isToFail("mkdir", pathOf(path))) return -1;
    return ORIGINAL(mkdir)(path, mode);
}

int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    if (isToFail("open", pathOf(path))) return -1;
    return ORIGINAL(open)(path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    const bool alone = directory == AT_FDCWD || *path == '/';
    const auto whole = [&] { return alone ? path : pathAt(directory) + '/' + path; };
    if (isToFail("openat", whole)) return -1;
    return ORIGINAL(openat)(directory, path, flags, mode);
}

int close(int descriptor) {
    const bool chosen = isToFail("close", pathOf(descriptor));
    const int result = ORIGINAL(close)(descriptor);
    return chosen ? failed() : result;
}

FILE* fopen64(const char* path, const char* mode) {
    if (isToFail(*mode == 'r' ? "fopen" : "create", pathOf(path))) return nullptr;
    return ORIGINAL(fopen64)(path, mode);
}

FILE* fopen(const char* path, const char* mode) {
    if (isToFail(*mode == 'r' ? "fopen" : "create", pathOf(path))) return nullptr;
    return ORIGINAL(fopen)(path, mode);
}

int fclose(FILE* file) {
    const bool chosen = isToFail("fclose", pathOf(fileno(file)));
    const int result = ORIGINAL(fclose)(file);
    return chosen ? failed() : result;
}

off64_t lseek64(int descriptor, off64_t offset, int whence) noexcept {
    if (isToFail(seekNames.at(static_cast<std::size_t>(whence)), pathOf(descriptor))) return -1;
    return ORIGINAL(lseek64)(descriptor, offset, whence);
}

int fseeko(FILE* file, off_t offset, int whence) {
    if (isToFail(seekNames.at(static_cast<std::size_t>(whence)), pathOf(fileno(file)))) return -1;
    return ORIGINAL(fseeko)(file, offset, whence);
}

off_t ftello(FILE* file) {
    if (isToFail("tell", pathOf(fileno(file)))) return -1;
    return ORIGINAL(ftello)(file);
}

ssize_t read(int descriptor, void* bytes, size_t count) {
    const bool chosen = isToFail("read", pathOf(descriptor));
    if (chosen && errno != 0) return -1;
    return ORIGINAL(read)(descriptor, bytes, chosen ? (count + 1) / 2 : count);
}

ssize_t write(int descriptor, const void* bytes, size_t count) {
    const bool chosen = isToFail("write", pathOf(descriptor));
    if (chosen && errno != 0) return -1;
    return ORIGINAL(write)(descriptor, bytes, chosen ? (count + 1) / 2 : count);
}

ssize_t writev(int descriptor, const struct iovec* pieces, int count) {
    const bool chosen = isToFail("writev", pathOf(descriptor));
    if (chosen && errno != 0) return -1;
    if (!chosen) return ORIGINAL(writev)(descriptor, pieces, count);
    iovec half = pieces[count - 1];
    if (count > 1 && pieces[0].iov_len != 0) half = pieces[0];
    half.iov_len = (half.iov_len + 1) / 2;
    return ORIGINAL(writev)(descriptor, &half, 1);
}

size_t fread(void* bytes, size_t size, size_t count, FILE* file) {
    const bool chosen = isToFail("fread", pathOf(fileno(file)));
    if (chosen && errno != 0) return 0;
    return ORIGINAL(fread)(bytes, size, chosen ? (count + 1) / 2 : count, file);
}

// Writing nothing cannot fail; libc++ does so whenever it closes a file.
size_t fwrite(const void* bytes, size_t size, size_t count, FILE* file) {
    const bool chosen = count != 0 && isToFail("fwrite", pathOf(fileno(file)));
    if (chosen && errno != 0) return 0;
    return ORIGINAL(fwrite)(bytes, size, chosen ? count / 2 : count, file);
}

int fflush(FILE* file) {
    if (isToFail("fflush", [file] { return pathAt(fileno(file)); })) return EOF;
    return ORIGINAL(fflush)(file);
}

DIR* opendir(const char* path) {
    if (isToFail("opendir", pathOf(path))) return nullptr;
    return ORIGINAL(opendir)(path);
}

DIR* fdopendir(int descriptor) {
    if (isToFail("fdopendir", pathOf(descriptor))) return nullptr;
    return ORIGINAL(fdopendir)(descriptor);
}

struct dirent* readdir(DIR* directory) {
    if (isToFail("readdir", pathOf(dirfd(directory)))) return nullptr;
    return ORIGINAL(readdir)(directory);
}

int closedir(DIR* directory) {
    const bool chosen = isToFail("closedir", pathOf(dirfd(directory)));
    const int result = ORIGINAL(closedir)(directory);
    return chosen ? failed() : result;
}

}  // extern "C"
