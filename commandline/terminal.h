// SPDX-License-Identifier: MIT
// What the program writes: to standard error, which may be a terminal, and to standard output.
#pragma once

#include <string>
#include <string_view>

namespace vesk::commandline {

/// Makes the standard streams safe to use in whatever state the process was started: a closed one
/// becomes /dev/null, so that no file of ours is opened in its place and written to by accident;
/// a broken pipe no longer kills, nor does a limit on the size of files. Reads the locale, which
/// says what a terminal can show.
void prepareStandardStreams();

/// Returns `text` as standard error is to be shown it. On a terminal every byte that is not part of
/// a printable character becomes a backslash and three octal digits, so that a file name cannot
/// drive the terminal, nor pass for another by characters that are not seen or change the order of
/// others; elsewhere the bytes stay as they are.
std::string forStandardError(std::string_view text);

/// Writes `line`, as forStandardError gives it, and a newline to standard error. Failure to write
/// is ignored.
void say(std::string_view line);

/// Writes `text` as it is to the file descriptor. Failure to write is ignored.
void writeText(int descriptor, std::string_view text);

bool standardErrorIsTerminal();

/// Returns whether standard error is a terminal on which a line can be redrawn.
bool canRedraw();

/// Returns how many columns that terminal has at the moment.
std::size_t terminalColumns();

/// Writes `line`, which fits the terminal, in the place of the live line, the one that is shown
/// while the work lasts.
void showLiveLine(std::string_view line);

/// Erases the live line, also when it has been wrapped because the terminal has become narrower.
void eraseLiveLine();

/// Returns what must be written before another line: nothing unless a live line is shown. Can be
/// called in a signal handler.
std::string_view liveLineErasure();

}  // namespace vesk::commandline
