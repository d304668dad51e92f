#include "store/stream_primitives.h"

#include <bit>
#include <cstring>
#include <new>
#include <string>

namespace Marlowen {

// Values go to and from the stream as their raw bytes, which are the file's
// little-endian layout only on a little-endian machine.
static_assert(std::endian::native == std::endian::little);

namespace {

// Lengths are not checked against the stream. One that a 32-bit process could
// never allocate fails as its allocation would there, before gigabytes are
// zero-filled here.
constexpr std::uint32_t kLargestText = 0x7FFFFFFF;

std::string AllocateText(std::uint32_t length, std::size_t extra) {
  if (length > kLargestText) throw std::bad_alloc();
  return std::string(static_cast<std::size_t>(length) + extra, '\0');
}

}  // namespace

ByteStream& WriteU32(ByteStream& stream, std::uint32_t value) {
  stream.Write(&value, sizeof(value));
  return stream;
}

ByteStream& ReadU32(ByteStream& stream, std::uint32_t& value) {
  stream.Read(&value, sizeof(value));
  return stream;
}

ByteStream& WriteBool(ByteStream& stream, bool value) {
  const std::uint8_t byte = value ? 1 : 0;
  stream.Write(&byte, 1);
  return stream;
}

ByteStream& ReadBool(ByteStream& stream, bool& value) {
  std::uint8_t byte = value ? 1 : 0;
  stream.Read(&byte, 1);
  value = byte == 1;
  return stream;
}

ByteStream& WriteString(ByteStream& stream, WideStringView value) {
  const std::string utf8 = WideToUtf8(value);
  WriteU32(stream, static_cast<std::uint32_t>(utf8.size()));
  if (!utf8.empty()) stream.Write(utf8.data(), static_cast<std::uint32_t>(utf8.size()));
  return stream;
}

ByteStream& ReadString(ByteStream& stream, WideString& value) {
  std::uint32_t length = 0;
  ReadU32(stream, length);
  if (length == 0) {
    value.clear();
    return stream;
  }
  std::string utf8 = AllocateText(length, 0);
  stream.Read(utf8.data(), length);
  value = Utf8ToWide(utf8);
  return stream;
}

ByteStream& WritePath(ByteStream& stream, const PathBuffer& value) { return WriteString(stream, value.View()); }

ByteStream& ReadPath(ByteStream& stream, PathBuffer& value) {
  std::uint32_t length = 0;
  ReadU32(stream, length);
  if (length == 0) {
    value.Clear();
    return stream;
  }
  std::string utf8 = AllocateText(length, 1);
  stream.Read(utf8.data(), length);
  value = Utf8ToWide(utf8.c_str());
  return stream;
}

ByteStream& WriteFileTime(ByteStream& stream, const FILETIME& value) {
  WriteU32(stream, value.dwLowDateTime);
  return WriteU32(stream, value.dwHighDateTime);
}

ByteStream& ReadFileTime(ByteStream& stream, FILETIME& value) {
  static_assert(sizeof(FILETIME) == 8);
  stream.Read(&value, sizeof(value));
  return stream;
}

}  // namespace Marlowen
