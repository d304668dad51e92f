#include "platform/dbghelp/system_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/dbghelp/arena.h"

namespace mldbghelp {

bool ReadWholeFile(Arena* arena, const char* path, Bytes* out) {
  int fd = SysOpen(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  // /proc files report size 0, so grow until read says end of file.
  size_t capacity = 16384;
  char* buffer = static_cast<char*>(arena->Allocate(capacity, 1));
  size_t size = 0;
  bool ok = buffer != nullptr;
  while (ok) {
    if (size + 1 == capacity) {
      char* bigger = static_cast<char*>(arena->Allocate(capacity * 2, 1));
      if (!bigger) {
        ok = false;
        break;
      }
      std::memcpy(bigger, buffer, size);
      buffer = bigger;
      capacity *= 2;
    }
    ssize_t n = SysRead(fd, buffer + size, capacity - 1 - size);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) ok = false;
    if (n <= 0) break;
    size += static_cast<size_t>(n);
  }
  SysClose(fd);
  if (!ok) return false;
  buffer[size] = '\0';
  out->data = buffer;
  out->size = size;
  return true;
}

TextBuilder& TextBuilder::Add(const char* text, size_t length) {
  if (length_ + length >= sizeof(buffer_)) {
    ok_ = false;
    length = sizeof(buffer_) - 1 - length_;
  }
  std::memcpy(buffer_ + length_, text, length);
  length_ += length;
  buffer_[length_] = '\0';
  return *this;
}

TextBuilder& TextBuilder::Add(const char* text) { return Add(text, std::strlen(text)); }

TextBuilder& TextBuilder::AddDecimal(uint64_t value) {
  char digits[24];
  size_t n = 0;
  do {
    digits[sizeof(digits) - 1 - n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value);
  return Add(digits + sizeof(digits) - n, n);
}

bool LineReader::Next(Bytes* line) {
  if (position_ >= text_.size) return false;
  const char* start = text_.data + position_;
  const void* newline = std::memchr(start, '\n', text_.size - position_);
  size_t length = newline ? static_cast<size_t>(static_cast<const char*>(newline) - start)
                          : text_.size - position_;
  line->data = start;
  line->size = length;
  position_ += length + (newline ? 1 : 0);
  return true;
}

bool ParseHex(const char** cursor, const char* end, uint64_t* value) {
  const char* p = *cursor;
  if (end - p > 2 && p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) p += 2;
  uint64_t result = 0;
  const char* first = p;
  for (; p < end; ++p) {
    char c = *p;
    int digit;
    if (c >= '0' && c <= '9') digit = c - '0';
    else if (c >= 'a' && c <= 'f') digit = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F') digit = c - 'A' + 10;
    else break;
    result = result * 16 + static_cast<uint64_t>(digit);
  }
  if (p == first) return false;
  *cursor = p;
  *value = result;
  return true;
}

bool ParseDecimal(const char** cursor, const char* end, uint64_t* value) {
  const char* p = *cursor;
  uint64_t result = 0;
  const char* first = p;
  for (; p < end && *p >= '0' && *p <= '9'; ++p) result = result * 10 + static_cast<uint64_t>(*p - '0');
  if (p == first) return false;
  *cursor = p;
  *value = result;
  return true;
}

void SkipSpaces(const char** cursor, const char* end) {
  while (*cursor < end && (**cursor == ' ' || **cursor == '\t')) ++*cursor;
}

bool StartsWith(Bytes text, const char* prefix) {
  size_t n = std::strlen(prefix);
  return text.size >= n && std::memcmp(text.data, prefix, n) == 0;
}

size_t ReadMemory(uint64_t address, void* buffer, size_t size) {
  iovec local{buffer, size};
  iovec remote{reinterpret_cast<void*>(address), size};
  pid_t self = static_cast<pid_t>(syscall(SYS_getpid));
  ssize_t n = syscall(SYS_process_vm_readv, self, &local, 1UL, &remote, 1UL, 0UL);
  return n > 0 ? static_cast<size_t>(n) : 0;
}

bool ListFolder(const char* path, void (*visit)(const char* name, void* context), void* context) {
  int fd = SysOpen(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  alignas(8) char buffer[4096];
  for (;;) {
    long n = syscall(SYS_getdents64, fd, buffer, sizeof(buffer));
    if (n <= 0) break;
    for (long offset = 0; offset < n;) {
      auto* entry = reinterpret_cast<dirent64*>(buffer + offset);
      offset += entry->d_reclen;
      const char* name = entry->d_name;
      if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
      visit(name, context);
    }
  }
  SysClose(fd);
  return true;
}

uint32_t CountCpuList(Bytes text) {
  const char* p = text.data;
  const char* end = p + text.size;
  uint32_t count = 0;
  while (p < end && *p != '\n') {
    uint64_t first, last;
    if (!ParseDecimal(&p, end, &first)) return 0;
    last = first;
    if (p < end && *p == '-') {
      ++p;
      if (!ParseDecimal(&p, end, &last) || last < first) return 0;
    }
    count += static_cast<uint32_t>(last - first + 1);
    if (p < end && *p == ',') ++p;
  }
  return count;
}

uint32_t CountProcessors(Arena* arena) {
  // The processors that exist; online is the fallback.
  static const char* const kLists[] = {"/sys/devices/system/cpu/present", "/sys/devices/system/cpu/online"};
  for (const char* path : kLists) {
    Bytes text;
    if (!ReadWholeFile(arena, path, &text)) continue;
    if (uint32_t count = CountCpuList(text)) return count;
  }
  return 1;
}

}  // namespace mldbghelp
