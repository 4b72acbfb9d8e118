// SPDX-License-Identifier: MIT
// The four functions that the module exports, one for each native method of the Vesk classes
// io.archives.TarArchiver and io.archives.TgzArchiver.
//
// Paths are NUL-terminated strings owned by the caller, read only, and may be null. `context` is
// not read; `mode` is handed to vesk::runtime::archives::modeIsOverwrite unseen. A function that
// returns with no pending host exception has succeeded; one that failed has raised exactly one
// `IOException`. Exceptions of the C++ standard library (std::bad_alloc, std::length_error) leave
// the functions uncaught, with everything released. Only when memory runs out while a directory is
// walked, libstdc++ 12 ends the process, and libc++ 14 may leave that directory open. The functions
// share no state and may run at the same time on any number of threads.
#pragma once

extern "C" {
#pragma GCC visibility push(default)

/// Archives the file or directory at `sourcePath` as POSIX ustar into the file `archivePath`.
void vesk_io_archives_TarArchiver_makeArchive(void* context, const char* sourcePath,
                                              const char* archivePath, void* mode);

/// Extracts the TAR archive at `archivePath` into the directory `destinationPath`: whole or not at
/// all.
void vesk_io_archives_TarArchiver_unpackArchive(void* context, const char* archivePath,
                                                const char* destinationPath, void* mode);

/// Like the TarArchiver's, with the TAR stream wrapped in one gzip member of stored blocks.
void vesk_io_archives_TgzArchiver_makeArchive(void* context, const char* sourcePath,
                                              const char* archivePath, void* mode);

/// Like the TarArchiver's, from one gzip member whose DEFLATE data the runtime decodes.
void vesk_io_archives_TgzArchiver_unpackArchive(void* context, const char* archivePath,
                                                const char* destinationPath, void* mode);

#pragma GCC visibility pop
}  // extern "C"
