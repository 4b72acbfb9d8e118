// SPDX-License-Identifier: MIT
// The four functions that the module exports, one for each native method of the Vesk classes
// io.archives.TarArchiver and io.archives.TgzArchiver.
//
// Paths are NUL-terminated strings owned by the caller. They are only read, and may be null.
// `context` is not read; `mode` is passed through unread to
// vesk::runtime::archives::modeIsOverwrite.
//
// A function that returns with no pending exception has succeeded. One that failed has raised
// exactly one `IOException`. Exceptions of the C++ standard library (std::bad_alloc,
// std::length_error) leave the functions uncaught, with all memory and files released; only a
// staging directory stays, for the runtime to remove. There is one restriction: when memory runs
// out during a directory walk, libstdc++ 12 ends the process, and libc++ 14 may leave that
// directory open.
//
// The functions share no state and may run at the same time on any number of threads.
#pragma once

extern "C" {
#pragma GCC visibility push(default)

/// Archives the file or directory at `sourcePath` as POSIX ustar into the file `archivePath`.
void vesk_io_archives_TarArchiver_makeArchive(void* context, const char* sourcePath,
                                              const char* archivePath, void* mode);

/// Extracts the TAR archive at `archivePath` into the directory `destinationPath`: either all of it
/// or nothing.
void vesk_io_archives_TarArchiver_unpackArchive(void* context, const char* archivePath,
                                                const char* destinationPath, void* mode);

/// Like the function of TarArchiver, with the TAR stream wrapped in one gzip member of stored
/// blocks.
void vesk_io_archives_TgzArchiver_makeArchive(void* context, const char* sourcePath,
                                              const char* archivePath, void* mode);

/// Like the function of TarArchiver, for one gzip member whose DEFLATE data the runtime decodes.
void vesk_io_archives_TgzArchiver_unpackArchive(void* context, const char* archivePath,
                                                const char* destinationPath, void* mode);

#pragma GCC visibility pop
}  // extern "C"
