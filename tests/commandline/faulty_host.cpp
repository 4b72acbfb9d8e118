// SPDX-License-Identifier: MIT
// Preloaded in front of the stand-in host: makes one chosen host call of the module go wrong, or
// wait, at an exactly known moment.
//
//   VESK_FAULT_CALL  the number of the call, counted from 1 over both functions below
//   VESK_FAULT       what happens right before that call is answered:
//       SIGINT, SIGTERM, SIGHUP  the process receives the signal
//       bad_alloc, length_error  the call throws the exception
//       wait                     a dot is written to standard output, and the process waits until
//                                its standard input ends; it aborts if a signal cuts that short
#include <dlfcn.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string_view>

#include "module/host/host_runtime.h"

namespace {

void waitForEndOfInput() {
    char byte = '.';
    if (write(STDOUT_FILENO, &byte, 1) != 1) std::abort();
    ssize_t count = 1;
    while (count > 0) {
        count = read(STDIN_FILENO, &byte, 1);
    }
    if (count != 0) std::abort();
}

void commitFault(std::string_view fault) {
    if (fault == "SIGINT") std::raise(SIGINT);
    if (fault == "SIGTERM") std::raise(SIGTERM);
    if (fault == "SIGHUP") std::raise(SIGHUP);
    if (fault == "bad_alloc") throw std::bad_alloc();
    if (fault == "length_error") throw std::length_error("injected");
    if (fault == "wait") waitForEndOfInput();
}

void countCall() {
    static int calls = 0;
    const char* const faulty = std::getenv("VESK_FAULT_CALL");
    if (faulty != nullptr && ++calls == std::atoi(faulty)) commitFault(std::getenv("VESK_FAULT"));
}

// The same function of the library behind this one, under the name that the compiler gave it.
template <typename Function>
Function* answering(Function* function) {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(function), &info) == 0) std::abort();
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, info.dli_sname));
}

}  // namespace

int Vesk_hasPendingError(void) {
    countCall();
    return answering(&Vesk_hasPendingError)();
}

std::filesystem::path Vesk_runtimeFsPath(const char* text) {
    countCall();
    return answering(&Vesk_runtimeFsPath)(text);
}
