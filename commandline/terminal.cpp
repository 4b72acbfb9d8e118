// SPDX-License-Identifier: MIT
// Writing to the standard streams.
#include "commandline/terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
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

/// Erases to the end of the screen, since the line may have wrapped. The cursor is at its
/// beginning.
constexpr std::string_view erasure = "\r\033[J";

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): a handler has no other way
std::atomic<bool> liveLineIsShown = false;

/// Characters that count as printable, yet cannot be seen or told from a space, look different from
/// font to font, or change the order in which others are shown. With them a name could look like
/// another. The first and the last of each range.
struct HiddenRange {
    char32_t first;
    char32_t last;
};

constexpr auto hiddenRanges = std::to_array<HiddenRange>({
    {0x00A0, 0x00A0},      // the space that does not break
    {0x00AD, 0x00AD},      // the soft hyphen
    {0x034F, 0x034F},      // the grapheme joiner
    {0x0600, 0x0605},      // Arabic number signs
    {0x061C, 0x061C},      // the Arabic letter mark
    {0x06DD, 0x06DD},      // the Arabic end of ayah
    {0x070F, 0x070F},      // the Syriac abbreviation mark
    {0x0890, 0x0891},      // Arabic currency marks
    {0x08E2, 0x08E2},      // the Arabic disputed end of ayah
    {0x115F, 0x1160},      // Hangul fillers
    {0x1680, 0x1680},      // the Ogham space
    {0x17B4, 0x17B5},      // Khmer inherent vowels
    {0x180B, 0x180F},      // Mongolian variation selectors and the vowel separator
    {0x2000, 0x200F},      // spaces, zero width, and the marks of direction
    {0x2028, 0x202F},      // separators of lines and paragraphs, embeddings, overrides, a space
    {0x205F, 0x206F},      // a space, invisible operators and isolates
    {0x2800, 0x2800},      // the Braille pattern without dots
    {0x3000, 0x3000},      // the ideographic space
    {0x3164, 0x3164},      // the Hangul filler
    {0xE000, 0xF8FF},      // private use
    {0xFE00, 0xFE0F},      // variation selectors
    {0xFEFF, 0xFEFF},      // the byte order mark
    {0xFFA0, 0xFFA0},      // the halfwidth Hangul filler
    {0xFFF0, 0xFFFC},      // unassigned ones to be ignored, marks of annotations and of objects
    {0x110BD, 0x110BD},    // the Kaithi number sign
    {0x110CD, 0x110CD},    // the Kaithi number sign above
    {0x13430, 0x1343F},    // Egyptian hieroglyph controls
    {0x16FE4, 0x16FE4},    // the Khitan filler
    {0x1BCA0, 0x1BCA3},    // shorthand controls
    {0x1D159, 0x1D159},    // the musical notehead that is empty
    {0x1D173, 0x1D17A},    // musical controls
    {0xE0000, 0xE0FFF},    // tags and variation selectors
    {0xF0000, 0xFFFFD},    // private use
    {0x100000, 0x10FFFD},  // private use
});

bool isHidden(wchar_t character) {
    const auto code = static_cast<char32_t>(character);
    return std::any_of(hiddenRanges.begin(), hiddenRanges.end(), [code](HiddenRange range) {
        return range.first <= code && code <= range.last;
    });
}

/// Returns the length in bytes of the character at the front of `text` if it is visible, else 0.
std::size_t visibleLength(std::string_view text) {
    wchar_t character = 0;
    std::mbstate_t state{};
    // NOLINTNEXTLINE(concurrency-mt-unsafe): it is given its state
    const std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
    const bool isComplete = length >= 1 && length <= text.size();
    return isComplete && std::iswprint(static_cast<std::wint_t>(character)) != 0 &&
                   !isHidden(character)
               ? length
               : 0;
}

std::string escapedForTerminal(std::string_view text) {
    std::string escaped;
    while (!text.empty()) {
        std::size_t length = visibleLength(text);
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
        // open returns the lowest free number: this one, since all below it are open by now.
        // Without /dev/null, a descriptor that can be neither read nor written serves as well.
        if (open("/dev/null", O_RDWR) == -1) open("/", O_PATH);
    }
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    // Only what a terminal shows needs a locale, and loading one is a part of a short run's time.
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread runs yet
    if (standardErrorIsTerminal()) std::setlocale(LC_CTYPE, "");
}

std::string forStandardError(std::string_view text) {
    return standardErrorIsTerminal() ? escapedForTerminal(text) : std::string(text);
}

void say(std::string_view line) {
    const std::string shown = forStandardError(line);
    writeText(STDERR_FILENO, std::string(liveLineErasure()).append(shown) + "\n");
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

std::size_t terminalColumns() {
    constexpr std::size_t usual = 80;
    winsize size{};
    const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? size.ws_col : usual;
}

void showLiveLine(std::string_view line) {
    liveLineIsShown = true;
    // A terminal that rewraps its lines when resized keeps the cursor at the same place in its
    // line.
    writeText(STDERR_FILENO, std::string(erasure).append(line) + "\r");
}

void eraseLiveLine() {
    writeText(STDERR_FILENO, erasure);
    liveLineIsShown = false;
}

std::string_view liveLineErasure() {
    return liveLineIsShown ? erasure : std::string_view();
}

}  // namespace vesk::commandline
