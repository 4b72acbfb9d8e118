// SPDX-License-Identifier: MIT
// Searching a process's own memory for a pointer.
//
// Finished calls leave copies of the pointer on the stack and in registers. So the call and the
// search run on a separate stack, which is not searched: a pointer that is found elsewhere was kept
// by the call.
#include "hostcheck/pointer_search.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <exception>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace vesk::hostcheck {

namespace {

/// Larger mappings belong to a sanitizer and hold no pointers.
constexpr std::size_t largestSearched = std::size_t{1} << 30U;

/// Data that may hold the pointer. It is at the start of the memory whose rest is the stack.
struct Workspace {
    const std::function<void(std::span<char>)>* use = nullptr;
    std::span<char> given;
    bool isKept = false;
    std::exception_ptr problem;
    std::array<std::uintptr_t, 8192> piece{};
};

constexpr std::size_t workspaceSize = std::size_t{8} << 20U;

/// Global, since a signal handler takes no argument.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
Workspace* workspace = nullptr;

void* map(std::size_t size, int protection) {
    void* const memory =
        mmap(nullptr, size, protection, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    return memory;
}

/// Returns a page at an address that was never used before, so that no old pointer leads there. Nor
/// does what is left of an old pointer when its lower half is overwritten with a small number: such
/// numbers differ from the last bits of the address.
std::span<char> freshPage() {
    const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    constexpr std::size_t surroundings = std::size_t{1} << 30U;
    constexpr std::uintptr_t period = surroundings / 4;
    constexpr std::uintptr_t lastBits = 0xAE50000;
    char* const middle = static_cast<char*>(map(surroundings, PROT_NONE)) + surroundings / 2;
    const std::uintptr_t middlesBits = reinterpret_cast<std::uintptr_t>(middle) % period;
    char* const page = middle + (lastBits + period - middlesBits) % period;
    if (mprotect(page, size, PROT_READ | PROT_WRITE) != 0)
        throw std::system_error(errno, std::generic_category(), "mprotect");
    return {page, size};
}

/// Overwrites freed memory, which may still contain the pointer.
void overwriteFreedMemory() {
    std::vector<std::vector<char>> blocks;
    const auto fill = [&](std::size_t size, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            blocks.emplace_back(size);
    };
    // An allocator keeps freed blocks of each small size for that size.
    for (std::size_t size = 8; size <= 1032; size += 16)
        fill(size, 64);
    for (std::size_t size = 2048; size <= std::size_t{1} << 20U; size *= 2)
        fill(size, 16);
    // The rest are gaps between those blocks.
    fill(24, 200000);
}

/// Tells whether AddressSanitizer, if the library was built with it, says that the memory is freed:
/// it delays the reuse of freed memory.
bool isFreed(std::uintptr_t address) {
    void* const ask = dlsym(RTLD_DEFAULT, "__asan_address_is_poisoned");
    // NOLINTNEXTLINE(performance-no-int-to-ptr): it is not followed
    auto* const place = reinterpret_cast<void*>(address);
    return ask != nullptr && reinterpret_cast<int (*)(const void*)>(ask)(place) != 0;
}

bool isInWorkspace(std::uintptr_t address) {
    const auto start = reinterpret_cast<std::uintptr_t>(workspace);
    return address >= start && address - start < workspaceSize;
}

/// Tells whether one of the first `count` words of the piece, which was read from `address`, points
/// into the memory that was passed to the call.
bool pieceHoldsPointer(std::uintptr_t address, std::size_t count) {
    const auto first = reinterpret_cast<std::uintptr_t>(workspace->given.data());
    for (std::size_t i = 0; i < count; ++i) {
        const std::uintptr_t word = workspace->piece[i];
        const bool pointsThere = word >= first && word - first < workspace->given.size();
        const std::uintptr_t place = address + i * sizeof word;
        if (pointsThere && !isInWorkspace(place) && !isFreed(place)) return true;
    }
    return false;
}

/// Searches a range of memory. Unreadable parts, such as the end of a truncated file, hold nothing.
bool rangeHoldsPointer(int memory, std::uintptr_t start, std::uintptr_t end) {
    while (start < end) {
        const std::size_t size = std::min(end - start, sizeof workspace->piece);
        const ssize_t length =
            pread(memory, workspace->piece.data(), size, static_cast<off_t>(start));
        if (length <= 0) return false;
        const auto count = static_cast<std::size_t>(length) / sizeof(std::uintptr_t);
        if (pieceHoldsPointer(start, count)) return true;
        start += static_cast<std::size_t>(length);
    }
    return false;
}

bool processHoldsPointer() {
    const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    if (memory == -1) throw std::system_error(errno, std::generic_category(), "/proc/self/mem");
    std::ifstream maps("/proc/self/maps");
    std::uintptr_t start = 0;
    std::uintptr_t end = 0;
    char dash = 0;
    std::string rights;
    std::string rest;
    bool isFound = false;
    while (!isFound && maps >> std::hex >> start >> dash >> end >> rights && getline(maps, rest)) {
        const bool isPrivateData = rights.starts_with("rw") && rights.ends_with('p');
        if (isPrivateData && end - start <= largestSearched)
            isFound = rangeHoldsPointer(memory, start, end);
    }
    close(memory);
    return isFound;
}

void useAndSearch() {
    workspace->given = freshPage();
    (*workspace->use)(workspace->given);
    mprotect(workspace->given.data(), workspace->given.size(), PROT_NONE);
    overwriteFreedMemory();
    workspace->isKept = processHoldsPointer();
}

/// Stores exceptions, since none may leave a signal handler.
void handleSignal(int /*signal*/) {
    try {
        useAndSearch();
    } catch (...) {
        workspace->problem = std::current_exception();
    }
}

/// Runs `handler` as a signal handler, since the system lets such a handler use another stack.
void runOnTheWorkspacesStack(void (*handler)(int)) {
    stack_t stack{};
    stack.ss_sp = workspace + 1;
    stack.ss_size = workspaceSize - sizeof(Workspace);
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_ONSTACK;
    sigset_t own;
    sigemptyset(&own);
    sigaddset(&own, SIGUSR1);
    if (sigaltstack(&stack, nullptr) != 0 || sigaction(SIGUSR1, &action, nullptr) != 0 ||
        pthread_sigmask(SIG_UNBLOCK, &own, nullptr) != 0)
        throw std::system_error(errno, std::generic_category(), "sigaltstack");
    std::raise(SIGUSR1);
}

}  // namespace

bool keepsPointer(const std::function<void(std::span<char>)>& use) {
    void* const memory = map(workspaceSize, PROT_READ | PROT_WRITE);
    workspace = std::construct_at(static_cast<Workspace*>(memory));
    workspace->use = &use;
    runOnTheWorkspacesStack(&handleSignal);
    if (workspace->problem) std::rethrow_exception(workspace->problem);
    return workspace->isKept;
}

}  // namespace vesk::hostcheck
