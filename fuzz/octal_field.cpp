// SPDX-License-Identifier: MIT
// Fuzz target: the octal parser, compared with a second one on fields of any width, and with the
// writer.
#include "tar/octal_field.h"

#include <array>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "fuzz/require.h"
#include "fuzz/tar_model.h"
#include "standinhost/standin_host.h"

namespace fuzzing = vesk::fuzzing;

namespace {

// Writes `value` into a field of each width and reads it back.
void checkWriter(std::uint64_t value) {
    const int digits = std::snprintf(nullptr, 0, "%" PRIo64, value);
    for (std::size_t width = 2; width <= 24; ++width) {
        std::array<std::uint8_t, 24> field;
        field.fill('x');
        vesk::io::archives::tarWriteOctal(field.data(), width, value);
        const auto read = vesk::io::archives::tarParseOctal(field.data(), width);
        const auto pending = vesk::standin::takePendingError();
        if (pending) {
            fuzzing::require(pending->message == "TAR numeric field is too large" && !read,
                             "a number that does not fit is refused");
        } else {
            fuzzing::require(read == value, "a number that was written is read back");
        }
        const bool fits = digits < static_cast<int>(width);
        fuzzing::require(fits == !pending, "exactly the numbers that fit are written");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view field(reinterpret_cast<const char*>(data), size);
    fuzzing::require(vesk::io::archives::tarParseOctal(data, size) == fuzzing::expectedOctal(field),
                     "both parsers agree");
    if (size >= 8) {
        std::uint64_t value = 0;
        std::memcpy(&value, data, sizeof value);
        checkWriter(value);
    }
    return 0;
}
