// SPDX-License-Identifier: MIT
// Writing lines to standard output.
#include "hostcheck/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace vesk::hostcheck {

void occupyStandardDescriptors() {
    // open() returns the lowest free number.
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(descriptor, F_GETFD) == -1) open("/dev/null", O_RDONLY);
}

void printLine(const std::string& text) {
    if (std::puts(text.c_str()) == EOF || std::fflush(stdout) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot write the report");
}

}  // namespace vesk::hostcheck
