// SPDX-License-Identifier: MIT
// Reading one gzip member (RFC 1952): the header's checks, the runtime's inflater, the trailer.
#pragma once

#include <string>

#include "fileaccess/byte_buffer.h"
#include "fileaccess/memory_block.h"

namespace vesk::io::archives {

/// What a member holds, decoded.
using GzipContent = std::basic_string<char, std::char_traits<char>, BlockAllocator<char>>;

/// Decodes the gzip member that fills the whole of `member` into `content`.
///
/// The trailer is always the last eight bytes, so nothing may follow the member. `member` is
/// released as soon as its payload has been copied for the inflater. Returns false with `errorText`
/// replaced, in this order of tests, by "Invalid gzip stream", "Invalid gzip flags", "Truncated
/// gzip extra field", "Truncated gzip file name", "Truncated gzip comment", "Truncated gzip header
/// checksum", "Invalid gzip header checksum", "Missing gzip DEFLATE payload", the inflater's own
/// message, or "Invalid gzip checksum"; `content` is then unchanged.
bool gzipReadMember(ByteBuffer member, GzipContent& content, std::string& errorText);

}  // namespace vesk::io::archives
