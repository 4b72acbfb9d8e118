// SPDX-License-Identifier: MIT
// Writes to standard error, which may be a terminal, and to standard output.
#pragma once

#include <string>
#include <string_view>

namespace vesk::commandline {

/// Makes the standard streams safe to use in whatever state the process was started. A closed one
/// becomes /dev/null, so that no file opened later takes its number and is written to by accident.
/// A broken pipe or a limit on the size of files no longer kills the process. If standard error is
/// a terminal, reads the locale, which tells what it can show.
void prepareStandardStreams();

/// Returns `text` as standard error should show it. On a terminal every byte that is not part of a
/// printable character becomes a backslash and three octal digits. So a file name cannot control
/// the terminal, nor look like another by invisible characters or ones that change the order of
/// others. Elsewhere the bytes stay as they are.
std::string forStandardError(std::string_view text);

/// Writes `line`, escaped by forStandardError, and a newline to standard error. Ignores a failure
/// to write.
void say(std::string_view line);

/// Writes `text` unchanged to the file descriptor. Ignores a failure to write.
void writeText(int descriptor, std::string_view text);

bool standardErrorIsTerminal();

/// Returns whether standard error is a terminal on which a line can be redrawn.
bool canRedraw();

/// Returns the terminal's current number of columns.
std::size_t terminalColumns();

/// Shows `line`, which must fit the terminal, in place of the live line, the one that is shown
/// during the work.
void showLiveLine(std::string_view line);

/// Erases the live line, even if it wrapped because the terminal became narrower.
void eraseLiveLine();

/// Returns what must be written before another line: empty unless a live line is shown. Can be
/// called in a signal handler.
std::string_view liveLineErasure();

}  // namespace vesk::commandline
