// SPDX-License-Identifier: MIT
// Preloaded in front of the stand-in host: makes one chosen host call of the module fail or wait.
//
//   VESK_FAULT_CALL  the number of the call, counted from 1 over both functions below
//   VESK_FAULT       what happens right before that call returns:
//       a number                 the process receives that signal and handles it
//       bad_alloc, length_error  the call throws the exception
//       wait                     a dot is written to standard output, and the process waits until
//                                its standard input ends; it aborts if a signal cuts that short
//
//   VESK_SLOW        the function that waits in the same way before it does its work for the first
//                    time: readdir, writev (or the fwrite by which libc++ writes), rename,
//                    renameat2, fsync, syncfs or inflateRaw
//
// It also affects what the program does on signals:
//
//   VESK_PATIENCE    if it is "ordinary", the program's time limit after a signal is kept;
//                    else there is none, so that no test depends on how fast the machine is
//   VESK_NO_THREADS  if it is 1, no thread can be started
//   VESK_NO_TIMER    if it is 1, no timer can be created
//   VESK_HOLD_UP     the program waits: if it is "said", when it has written to standard error; if
//                    it is "done", when it has nothing more to do
//
// It can make memory run out when the work is done:
//
//   VESK_NO_MEMORY   if it is 1, no allocation succeeds after the first renameat2
//
// It shows what the module is called with:
//
//   VESK_SHOW_SYNC   if it is 1, "sync" is written to standard output when the mode asks for it
//
// It makes random names predictable:
//
//   VESK_NO_CHANCE   if it is 1, every random choice is the first candidate
//
// And it imitates a file system with fewer features:
//
//   VESK_NO_RENAMEAT2, VESK_NO_LINK, VESK_NO_UNLINK, VESK_NO_FCHMOD
//                   if it is 1, that system call is refused
//   VESK_NO_TYPES   if it is 1, directory entries have no type
//   VESK_SIZE_OF, VESK_SIZE  the path of a file, and the size that is reported for it
//
// or one on which others work at the same time:
//
//   VESK_MEANWHILE  if it is 1, a file appears at the new name right before the first renameat2
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "module/host/host_runtime.h"
#include "standinhost/standin_host.h"

namespace {

void waitForEndOfInput() {
    char byte = '.';
    if (syscall(SYS_write, STDOUT_FILENO, &byte, 1) != 1) std::abort();
    ssize_t count = 1;
    while (count > 0) {
        count = read(STDIN_FILENO, &byte, 1);
    }
    if (count != 0) std::abort();
}

bool isAsleep(const std::string& task) {
    std::ifstream file("/proc/self/task/" + task + "/stat");
    std::stringstream text;
    text << file.rdbuf();
    return text.str().substr(text.str().rfind(')') + 1, 2) == " S";
}

bool othersAreAsleep() {
    bool all = true;
    DIR* const tasks = opendir("/proc/self/task");
    while (const dirent* entry = readdir(tasks)) {
        const std::string name = entry->d_name;
        if (name[0] != '.' && name != std::to_string(gettid())) all = all && isAsleep(name);
    }
    closedir(tasks);
    return all;
}

// A thread that the signal wakes runs from then on until it waits again.
void sendSignal(int number) {
    kill(getpid(), number);
    while (!othersAreAsleep())
        usleep(1000);
}

void commitFault(const std::string& fault) {
    if (const int number = std::atoi(fault.c_str()); number != 0) sendSignal(number);
    if (fault == "bad_alloc") throw std::bad_alloc();
    if (fault == "length_error") throw std::length_error("injected");
    if (fault == "wait") waitForEndOfInput();
}

void countCall() {
    static int calls = 0;
    const char* const faulty = std::getenv("VESK_FAULT_CALL");
    if (faulty != nullptr && ++calls == std::atoi(faulty)) commitFault(std::getenv("VESK_FAULT"));
}

void waitIfSlow(const char* function) {
    static bool isFirst = true;
    const char* const slow = std::getenv("VESK_SLOW");
    if (slow != nullptr && std::string_view(slow) == function && std::exchange(isFirst, false))
        waitForEndOfInput();
}

// The same function in the next library, under its mangled name.
template <typename Function>
Function* answering(Function* function) {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(function), &info) == 0) std::abort();
    // A sanitizer's own function has this before the name.
    constexpr std::string_view prefix = "__interceptor_";
    const std::string_view name(info.dli_sname);
    const char* const plain = name.data() + (name.starts_with(prefix) ? prefix.size() : 0);
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, plain));
}

// Looked up in advance: the program calls it in a signal handler.
const auto setTimer = reinterpret_cast<decltype(&timer_settime)>(dlsym(RTLD_NEXT, "timer_settime"));

bool isSet(const char* name, std::string_view value) {
    const char* const found = std::getenv(name);
    return found != nullptr && found == value;
}

struct LastDeed {
    ~LastDeed() {
        if (isSet("VESK_HOLD_UP", "done")) waitForEndOfInput();
    }
} const lastDeed;

}  // namespace

static bool memoryHasEnded = false;

void* operator new(std::size_t size) {
    if (memoryHasEnded) throw std::bad_alloc();
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

extern "C" ssize_t write(int descriptor, const void* bytes, std::size_t size) {
    const ssize_t written = syscall(SYS_write, descriptor, bytes, size);
    if (descriptor == STDERR_FILENO && isSet("VESK_HOLD_UP", "said")) waitForEndOfInput();
    return written;
}

extern "C" int timer_settime(timer_t timer, int flags, const itimerspec* time,
                             itimerspec* old) noexcept {
    return isSet("VESK_PATIENCE", "ordinary") ? setTimer(timer, flags, time, old) : 0;
}

extern "C" ssize_t getrandom(void* bytes, std::size_t size, unsigned int flags) {
    if (!isSet("VESK_NO_CHANCE", "1")) return syscall(SYS_getrandom, bytes, size, flags);
    std::memset(bytes, 0, size);
    return static_cast<ssize_t>(size);
}

extern "C" int timer_create(clockid_t clock, sigevent* event, timer_t* timer) noexcept {
    if (!isSet("VESK_NO_TIMER", "1")) return answering(&timer_create)(clock, event, timer);
    errno = EAGAIN;
    return -1;
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*run)(void*), void* argument) noexcept {
    if (isSet("VESK_NO_THREADS", "1")) return EAGAIN;
    return answering(&pthread_create)(thread, attributes, run, argument);
}

extern "C" int renameat2(int from, const char* name, int to, const char* newName,
                         unsigned int flags) noexcept {
    waitIfSlow("renameat2");
    static bool isFirst = true;
    if (std::exchange(isFirst, false) && isSet("VESK_MEANWHILE", "1"))
        close(openat(to, newName, O_WRONLY | O_CREAT, 0666));
    if (!isSet("VESK_NO_RENAMEAT2", "1")) {
        const int result = answering(&renameat2)(from, name, to, newName, flags);
        memoryHasEnded = isSet("VESK_NO_MEMORY", "1");
        return result;
    }
    errno = EINVAL;
    return -1;
}

extern "C" int rename(const char* name, const char* newName) noexcept {
    waitIfSlow("rename");
    return answering(&rename)(name, newName);
}

extern "C" int link(const char* name, const char* newName) noexcept {
    if (!isSet("VESK_NO_LINK", "1")) return answering(&link)(name, newName);
    errno = EPERM;
    return -1;
}

extern "C" int unlink(const char* name) noexcept {
    if (!isSet("VESK_NO_UNLINK", "1")) return answering(&unlink)(name);
    errno = EPERM;
    return -1;
}

extern "C" ssize_t writev(int descriptor, const iovec* parts, int count) {
    waitIfSlow("writev");
    return syscall(SYS_writev, descriptor, parts, count);
}

#ifdef _LIBCPP_VERSION
extern "C" size_t fwrite(const void* bytes, size_t size, size_t count, FILE* file) {
    // The program writes lines in this way, too.
    if (file != stdout && file != stderr) waitIfSlow("writev");
    return answering(&fwrite)(bytes, size, count, file);
}
#endif

extern "C" int fsync(int descriptor) {
    waitIfSlow("fsync");
    return answering(&fsync)(descriptor);
}

extern "C" int syncfs(int descriptor) noexcept {
    waitIfSlow("syncfs");
    return answering(&syncfs)(descriptor);
}

extern "C" int fchmod(int descriptor, mode_t mode) noexcept {
    if (!isSet("VESK_NO_FCHMOD", "1")) return answering(&fchmod)(descriptor, mode);
    errno = EPERM;
    return -1;
}

extern "C" dirent* readdir(DIR* directory) {
    waitIfSlow("readdir");
    dirent* const entry = answering(&readdir)(directory);
    if (entry != nullptr && isSet("VESK_NO_TYPES", "1")) entry->d_type = DT_UNKNOWN;
    return entry;
}

extern "C" int stat(const char* path, struct stat* status) noexcept {
    const int result = fstatat(AT_FDCWD, path, status, 0);
    if (isSet("VESK_SIZE_OF", path)) status->st_size = std::atoll(std::getenv("VESK_SIZE"));
    return result;
}

int Vesk_hasPendingError(void) {
    countCall();
    return answering(&Vesk_hasPendingError)();
}

std::filesystem::path Vesk_runtimeFsPath(const char* text) {
    countCall();
    return answering(&Vesk_runtimeFsPath)(text);
}

bool vesk::runtime::archives::modeIsOverwrite(void* mode) {
    constexpr std::string_view word = "sync";
    if (isSet("VESK_SHOW_SYNC", "1") && static_cast<const standin::Mode*>(mode)->sync)
        syscall(SYS_write, STDOUT_FILENO, word.data(), word.size());
    return answering(&modeIsOverwrite)(mode);
}

bool vesk::runtime::zip::inflateRaw(std::istream& in, std::uint64_t compressedSize,
                                    std::uint64_t uncompressedSize, std::ostream& out,
                                    std::uint32_t& crc, std::string& error) {
    waitIfSlow("inflateRaw");
    return answering(&inflateRaw)(in, compressedSize, uncompressedSize, out, crc, error);
}
