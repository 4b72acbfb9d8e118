// SPDX-License-Identifier: MIT
// A module that lacks the last of the four functions.
#include "module/native_methods.h"

void vesk_io_archives_TarArchiver_makeArchive(void*, const char*, const char*, void*) {}
void vesk_io_archives_TarArchiver_unpackArchive(void*, const char*, const char*, void*) {}
void vesk_io_archives_TgzArchiver_makeArchive(void*, const char*, const char*, void*) {}
