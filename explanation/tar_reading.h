// SPDX-License-Identifier: MIT
// Reading a TAR stream by the module's rules, in their order, and beyond the first that is broken.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "explanation/advice.h"
#include "explanation/byte_source.h"

namespace vesk::explanation {

/// What is wrong with a stream.
struct TarReading {
    /// The module's message; empty where it finds nothing wrong with the stream.
    std::string message;
    /// Where that is and what it is, in one line.
    std::string finding;
    /// What helps, all that stands behind it considered as well.
    Remedy remedy = Remedy::nothing;
};

/// A file or a directory that the module makes.
struct TarEntry {
    std::uint64_t number = 0;  ///< from 1
    std::string name;          ///< safe, but not normalised
    bool isDirectory = false;
    std::uint64_t size = 0;
};

using TarVisitor = std::function<void(const TarEntry&)>;

/// Reads the stream to its end, hopping over what entries hold. `subject` is what it is called in a
/// sentence. Calls `visit`, if there is one, for every entry before the first trouble.
TarReading readTar(ByteSource& stream, const std::string& subject, const TarVisitor& visit = {});

}  // namespace vesk::explanation
