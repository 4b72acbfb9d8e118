// SPDX-License-Identifier: MIT
// What the program writes: to standard error, which may be a terminal, and to standard output.
#pragma once

#include <string_view>

namespace vesk::commandline {

/// Makes the standard streams safe to use in whatever state the process was started: a closed one
/// becomes /dev/null, so that no file of ours is opened in its place and written to by accident;
/// a broken pipe no longer kills. Reads the locale, which says what a terminal can show.
void prepareStandardStreams();

/// Writes `line` and a newline to standard error. On a terminal every byte that is not part of a
/// printable character is written as a backslash and three octal digits, so that a file name cannot
/// drive the terminal; elsewhere the bytes stay as they are. Failure to write is ignored.
void say(std::string_view line);

/// Writes `text` as it is to the file descriptor. Failure to write is ignored.
void writeText(int descriptor, std::string_view text);

/// Returns whether standard error is a terminal on which a line can be redrawn.
bool canRedraw();

}  // namespace vesk::commandline
