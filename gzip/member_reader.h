// SPDX-License-Identifier: MIT
// Reading one gzip member (RFC 1952): checks its header, has the runtime decode its payload, checks
// its trailer.
#pragma once

#include <string>

#include "fileaccess/byte_buffer.h"
#include "fileaccess/memory_block.h"

namespace vesk::io::archives {

/// The decoded content of a member.
using GzipContent = std::basic_string<char, std::char_traits<char>, BlockAllocator<char>>;

/// Decodes the gzip member that fills the whole of `member` into `content`.
///
/// The last eight bytes are taken for the trailer, so nothing may follow the member. `member` is
/// released as soon as its payload has been copied for the inflater. On failure returns false;
/// `content` is then unchanged, and `errorText` is replaced by the first of these that applies:
/// "Invalid gzip stream", "Invalid gzip flags", "Truncated gzip extra field", "Truncated gzip file
/// name", "Truncated gzip comment", "Truncated gzip header checksum", "Invalid gzip header
/// checksum", "Missing gzip DEFLATE payload", the inflater's own message, "Invalid gzip checksum".
bool gzipReadMember(ByteBuffer member, GzipContent& content, std::string& errorText);

}  // namespace vesk::io::archives
