// The binary vocabulary of the report store: little-endian integers without
// padding, booleans as one byte, texts as a 32-bit UTF-8 byte count followed
// by the bytes without terminator.
//
// No primitive looks at what Read or Write answered: a short read leaves the
// destination as described at each function, and a record reader finds out
// from its version word alone. Every function returns the stream so that
// calls chain.
#pragma once

#include <cstdint>

#include "shell/wide_string.h"
#include "store/byte_stream.h"
#include "store/file_time.h"
#include "store/path_buffer.h"

namespace Marlowen {

ByteStream& WriteU32(ByteStream& stream, std::uint32_t value);
// A short read leaves the bytes that were not read as they were.
ByteStream& ReadU32(ByteStream& stream, std::uint32_t& value);

// Writes 1 for true, 0 for false.
ByteStream& WriteBool(ByteStream& stream, bool value);
// True only for a byte of exactly 1; nothing read leaves the value as it was.
ByteStream& ReadBool(ByteStream& stream, bool& value);

ByteStream& WriteString(ByteStream& stream, WideStringView value);
// A length of 0, also at the end of the stream, clears the destination.
// Otherwise exactly that many bytes are taken as UTF-8; bytes missing at the
// end of the stream read as zero. The length is not checked against the
// stream; one of 2 GiB or more throws std::bad_alloc, as its allocation would
// in the 32-bit process the format was made for.
ByteStream& ReadString(ByteStream& stream, WideString& value);

// The path up to its terminator, encoded as WriteString does.
ByteStream& WritePath(ByteStream& stream, const PathBuffer& value);
// The text up to its first zero byte; a text longer than a PathBuffer holds
// ends the process, as every over-long path does.
ByteStream& ReadPath(ByteStream& stream, PathBuffer& value);

// 8 bytes: the low half, then the high half.
ByteStream& WriteFileTime(ByteStream& stream, const FILETIME& value);
ByteStream& ReadFileTime(ByteStream& stream, FILETIME& value);

}  // namespace Marlowen
