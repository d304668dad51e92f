// The abstract byte stream under every binary file of the report store.
//
// Positions and sizes are 32-bit: files beyond 4 GiB are out of reach, which
// no record of the store comes near. Failures are answered with 0 bytes
// transferred or with kInvalidPosition; nothing throws.
#pragma once

#include <cstdint>

namespace Marlowen {

// The enumerations keep fixed 32-bit values; any other value is a legal
// argument and is read as the comment of each says.
enum FileAccess : std::uint32_t {
  FileAccess_Read = 0,
  FileAccess_Write = 1,
  FileAccess_ReadWrite = 2,  // also every value not listed
};

enum FileShare : std::uint32_t {
  FileShare_None = 0,  // also every value not listed
  FileShare_Read = 1,
  FileShare_Write = 2,
  FileShare_ReadWrite = 3,
};

enum FileAccessHint : std::uint32_t {
  FileAccessHint_Random = 0,
  FileAccessHint_Sequential = 1,
  FileAccessHint_None = 2,  // also every value not listed
};

// Seek origins.
inline constexpr std::uint32_t kSeekBegin = 0;
inline constexpr std::uint32_t kSeekCurrent = 1;
inline constexpr std::uint32_t kSeekEnd = 2;

// Answer of Tell, Seek and GetSize on failure.
inline constexpr std::uint32_t kInvalidPosition = 0xFFFFFFFFu;

class ByteStream {
 public:
  virtual ~ByteStream() = default;

  // True if the stream is open with at least the access asked for; "read and
  // write" only when it was opened for both; unknown values: false.
  virtual bool IsOpenFor(FileAccess access) const;

  virtual FileAccess GetAccess() const = 0;
  virtual FileShare GetShare() const = 0;
  virtual FileAccessHint GetAccessHint() const = 0;

  // Bytes transferred; 0 on failure.
  virtual std::uint32_t Read(void* buffer, std::uint32_t count) = 0;
  virtual std::uint32_t Write(const void* buffer, std::uint32_t count) = 0;

  virtual std::uint32_t Tell() = 0;
  // Origin kSeekBegin, kSeekCurrent or kSeekEnd; the new position.
  virtual std::uint32_t Seek(std::int32_t offset, std::uint32_t origin) = 0;
  // The low 32 bits of the length.
  virtual std::uint32_t GetSize() = 0;
  virtual bool IsOpen() const = 0;
};

}  // namespace Marlowen
