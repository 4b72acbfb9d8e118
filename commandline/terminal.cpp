// SPDX-License-Identifier: MIT
// Writing to the standard streams.
#include "commandline/terminal.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <string>

namespace vesk::commandline {

namespace {

constexpr std::string_view erasure = "\r\033[K";

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): a handler has no other way
std::atomic<bool> liveLineIsShown = false;

/// Returns how many bytes the printable character at the front of `text` has; 0 when there is none.
std::size_t printableLength(std::string_view text) {
    wchar_t character = 0;
    std::mbstate_t state{};
    // NOLINTNEXTLINE(concurrency-mt-unsafe): it is given its state
    const std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
    const bool isComplete = length >= 1 && length <= text.size();
    return isComplete && std::iswprint(static_cast<std::wint_t>(character)) != 0 ? length : 0;
}

std::string escapedForTerminal(std::string_view text) {
    std::string escaped;
    while (!text.empty()) {
        std::size_t length = printableLength(text);
        if (length > 0) {
            escaped += text.substr(0, length);
        } else {
            length = 1;
            std::array<char, 5> octal{};
            std::snprintf(octal.data(), octal.size(), "\\%03o",
                          static_cast<unsigned char>(text.front()));
            escaped += octal.data();
        }
        text.remove_prefix(length);
    }
    return escaped;
}

}  // namespace

void prepareStandardStreams() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) != -1) continue;
        // open takes the lowest free number: this one, since those below are open by now. Where
        // there is no /dev/null, that on which nothing can be read or written does as well.
        if (open("/dev/null", O_RDWR) == -1) open("/", O_PATH);
    }
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    std::setlocale(LC_CTYPE, "");  // NOLINT(concurrency-mt-unsafe): no other thread runs yet
}

std::string forStandardError(std::string_view text) {
    return standardErrorIsTerminal() ? escapedForTerminal(text) : std::string(text);
}

void say(std::string_view line) {
    writeText(STDERR_FILENO, forStandardError(line) + "\n");
}

void writeText(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written == -1 && errno == EINTR) continue;
        if (written <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

bool standardErrorIsTerminal() {
    return isatty(STDERR_FILENO) != 0;
}

bool canRedraw() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing here changes the environment
    const char* const terminal = std::getenv("TERM");
    return terminal != nullptr && *terminal != '\0' && terminal != std::string_view("dumb") &&
           standardErrorIsTerminal();
}

void showLiveLine(std::string_view line) {
    liveLineIsShown = true;
    writeText(STDERR_FILENO, std::string(erasure).append(line));
}

void eraseLiveLine() {
    writeText(STDERR_FILENO, erasure);
    liveLineIsShown = false;
}

std::string_view liveLineErasure() {
    return liveLineIsShown ? erasure : std::string_view();
}

}  // namespace vesk::commandline
