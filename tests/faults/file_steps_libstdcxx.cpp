// SPDX-License-Identifier: MIT
// The file operations of libstdc++.
#include <cerrno>

#include "tests/faults/file_steps.h"

namespace vesk::testing {

// clang-format off
const std::vector<Scenario>& scenarios() {
    static const std::vector<Scenario> rows = {
        {"MakeFromTree", "source", "new/archive", true, {
            {"stat new/archive", "Cannot inspect archive destination"},
            {"stat new", "Cannot create archive parent directory"},
            {"stat ROOT", nullptr},  // what is asked about an ancestor, its mkdir finds out, too
            {"mkdir new", "Cannot create archive parent directory"},
            {"stat source", "Archive source does not exist"},
            // When the check for a file fails, a check for a directory follows.
            {"stat source", nullptr},
            {"stat source", "Archive source must be a file or directory"},
            {"openat source", "Cannot enumerate archive source"},
            {"fdopendir source", "Cannot enumerate archive source"},
            {"readdir source", "Cannot enumerate archive source"},
            {"openat source/sub", "Cannot enumerate archive source"},
            {"fdopendir source/sub", "Cannot enumerate archive source"},
            {"readdir source/sub", "Cannot enumerate archive source"},
            {"stat source/sub/link", "Cannot enumerate archive source"},
            {"closedir source/sub", nullptr},
            {"closedir source", nullptr},
            {"fopen source/sub/link", "Cannot read file: ROOT/source/sub/link"},
            {"seek to end linked", "ZIP entry is too large for ZIP32"},
            {"seek linked", "Cannot read file: ROOT/source/sub/link"},
            {"read linked", "Cannot read file: ROOT/source/sub/link"},
            {"fclose linked", nullptr},
            {"create new/archive", "Cannot create archive"},
            {"writev new/archive", "Cannot finalize archive"},
            {"fclose new/archive", "Cannot finalize archive"},
        }},
        {"MakeFromFile", "linked", "archive", true, {
            {"stat archive", "Cannot inspect archive destination"},
            {"stat ROOT", "Cannot create archive parent directory"},
            {"stat linked", "Archive source does not exist"},
            {"stat linked", "Archive source must be a file or directory"},
            {"fopen linked", "Cannot read file: ROOT/linked"},
            {"seek to end linked", "ZIP entry is too large for ZIP32"},
            {"seek linked", "Cannot read file: ROOT/linked"},
            {"read linked", "Cannot read file: ROOT/linked"},
            {"fclose linked", nullptr},
            {"create archive", "Cannot create archive"},
            {"writev archive", "Cannot finalize archive"},
            {"fclose archive", "Cannot finalize archive"},
        }},
        {"Unpack", "packed", "destination", false, {
            {"stat packed", "Archive file does not exist"},
            {"fopen packed", "Cannot read file: ROOT/packed"},
            {"seek to end packed", "ZIP entry is too large for ZIP32"},
            {"seek packed", "Cannot read file: ROOT/packed"},
            {"read packed", "Cannot read file: ROOT/packed"},
            {"fclose packed", nullptr},
            {"stat STAGING/directory", "Cannot create TAR directory"},
            {"stat STAGING", nullptr},  // an ancestor, too
            {"mkdir STAGING/directory", "Cannot create TAR directory"},
            {"stat STAGING/deep", "Cannot create TAR entry directory"},
            {"mkdir STAGING/deep", "Cannot create TAR entry directory"},
            {"create STAGING/deep/small", nullptr},  // before its directory is there
            {"create STAGING/deep/small", "Cannot write TAR entry"},
            {"write STAGING/deep/small", "Cannot finalize TAR entry"},
            {"fclose STAGING/deep/small", "Cannot finalize TAR entry"},
            {"create STAGING/large", "Cannot write TAR entry"},
            {"writev STAGING/large", "Cannot finalize TAR entry"},
            {"fclose STAGING/large", "Cannot finalize TAR entry"},
        }},
    };
    return rows;
}
// clang-format on

const char* const readingFunction = "read";
const char* const directoryFunction = "openat";

// Its streams read and write descriptors, and repeat a call after EINTR.
bool isRetried(const std::string& /*call*/, int error) {
    return error == EINTR || error == 0;
}

}  // namespace vesk::testing
