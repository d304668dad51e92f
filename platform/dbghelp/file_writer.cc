#include "platform/dbghelp/file_writer.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/dbghelp/arena.h"
#include "platform/dbghelp/system_files.h"

namespace mldbghelp {
namespace {

constexpr size_t kBufferSize = 256 * 1024;
constexpr uint64_t kMemoryChunk = 8 << 20;

}  // namespace

FileWriter::FileWriter(int fd, off_t base, Arena* arena)
    : fd_(fd), base_(base), buffer_(static_cast<char*>(arena->Allocate(kBufferSize))) {
  if (!buffer_) error_ = ENOMEM;
}

bool FileWriter::Fail(int error) {
  if (!error_) error_ = error ? error : EIO;
  return false;
}

bool FileWriter::PwriteAll(const void* data, size_t size, uint64_t position) {
  const char* p = static_cast<const char*>(data);
  while (size) {
    ssize_t n = SysPwrite(fd_, p, size, base_ + static_cast<off_t>(position));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return Fail(n < 0 ? errno : ENOSPC);
    p += n;
    size -= static_cast<size_t>(n);
    position += static_cast<uint64_t>(n);
  }
  return true;
}

bool FileWriter::Flush() {
  if (error_) return false;
  if (!buffered_) return true;
  bool ok = PwriteAll(buffer_, buffered_, position_ - buffered_);
  buffered_ = 0;
  return ok;
}

bool FileWriter::Write(const void* data, size_t size) {
  if (error_) return false;
  if (buffered_ + size > kBufferSize) {
    if (!Flush()) return false;
    if (size > kBufferSize) {
      if (!PwriteAll(data, size, position_)) return false;
      position_ += size;
      return true;
    }
  }
  std::memcpy(buffer_ + buffered_, data, size);
  buffered_ += size;
  position_ += size;
  return true;
}

bool FileWriter::WriteZeros(size_t size) {
  static const char kZeros[4096] = {};
  while (size) {
    size_t n = size < sizeof(kZeros) ? size : sizeof(kZeros);
    if (!Write(kZeros, n)) return false;
    size -= n;
  }
  return true;
}

bool FileWriter::Align(size_t alignment) {
  size_t pad = (alignment - position_ % alignment) % alignment;
  return WriteZeros(pad);
}

bool FileWriter::WriteMemory(uint64_t address, uint64_t size) {
  if (!Flush()) return false;
  while (size) {
    size_t chunk = size < kMemoryChunk ? size : kMemoryChunk;
    ssize_t n = SysPwrite(fd_, reinterpret_cast<const void*>(address), chunk, base_ + static_cast<off_t>(position_));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno != EFAULT) return Fail(errno);
    if (n <= 0) {
      // Unreadable page: zeros up to the next page boundary, then go on.
      uint64_t pageEnd = (address | 0xfff) + 1;
      uint64_t skip = pageEnd - address < size ? pageEnd - address : size;
      if (!WriteZeros(skip) || !Flush()) return false;
      address += skip;
      size -= skip;
      continue;
    }
    address += static_cast<uint64_t>(n);
    size -= static_cast<uint64_t>(n);
    position_ += static_cast<uint64_t>(n);
  }
  return true;
}

uint32_t FileWriter::WriteString(const char* utf8) {
  if (!Align(4)) return 0;
  uint32_t rva = this->rva();
  // Count the UTF-16 units first: the length leads the text.
  auto decode = [](const unsigned char*& p) -> uint32_t {
    uint32_t c = *p++;
    int extra = c >= 0xf0 ? 3 : c >= 0xe0 ? 2 : c >= 0xc0 ? 1 : 0;
    if (c >= 0x80 && c < 0xc0) return 0xfffd;
    c &= extra == 3 ? 0x07 : extra == 2 ? 0x0f : extra == 1 ? 0x1f : 0x7f;
    for (int i = 0; i < extra; ++i) {
      if ((*p & 0xc0) != 0x80) return 0xfffd;
      c = c << 6 | (*p++ & 0x3f);
    }
    return c;
  };
  uint32_t units = 0;
  for (auto* p = reinterpret_cast<const unsigned char*>(utf8); *p;) units += decode(p) >= 0x10000 ? 2 : 1;
  uint32_t bytes = units * 2;
  Write(&bytes, 4);
  for (auto* p = reinterpret_cast<const unsigned char*>(utf8); *p;) {
    uint32_t c = decode(p);
    if (c >= 0x10000) {
      c -= 0x10000;
      uint16_t pair[2] = {static_cast<uint16_t>(0xd800 | (c >> 10)), static_cast<uint16_t>(0xdc00 | (c & 0x3ff))};
      Write(pair, 4);
    } else {
      uint16_t unit = static_cast<uint16_t>(c);
      Write(&unit, 2);
    }
  }
  uint16_t terminator = 0;
  return Write(&terminator, 2) ? rva : 0;
}

bool FileWriter::WriteAt(uint64_t position, const void* data, size_t size) {
  if (!Flush()) return false;
  return PwriteAll(data, size, position);
}

}  // namespace mldbghelp
