// Small signal-safe helpers over raw system calls: reading whole /proc
// files of any length, building paths, parsing numbers, reading memory of
// the dumped address space. No malloc, no stdio, no locks.
#pragma once

#include <cstddef>
#include <cstdint>

#include <sys/syscall.h>
#include <sys/types.h>
#include <fcntl.h>
#include <unistd.h>

namespace mldbghelp {

class Arena;

// Straight system calls, bypassing the C library's wrappers: a process may
// interpose those (a sanitizer runtime checks every buffer handed to
// pwrite, and the dump hands it whole stacks, red zones included).
// Each returns -1 with errno set on failure, as the wrappers do.
inline int SysOpen(const char* path, int flags) { return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, 0)); }
inline ssize_t SysRead(int fd, void* buffer, size_t size) { return syscall(SYS_read, fd, buffer, size); }
inline ssize_t SysPwrite(int fd, const void* data, size_t size, off_t offset) {
  return syscall(SYS_pwrite64, fd, data, size, offset);
}
inline ssize_t SysReadlink(const char* path, char* buffer, size_t size) {
  return syscall(SYS_readlinkat, AT_FDCWD, path, buffer, size);
}
inline int SysClose(int fd) { return static_cast<int>(syscall(SYS_close, fd)); }

// A byte range owned by someone else (usually an arena).
struct Bytes {
  const char* data = nullptr;
  size_t size = 0;
};

// Reads the whole file; lines may be of any length. A file that can't be
// opened gives false. The content is followed by a '\0' not counted in size.
[[nodiscard]] bool ReadWholeFile(Arena* arena, const char* path, Bytes* out);

// Fixed-capacity text builder for paths and short strings; never overflows,
// reports truncation through ok().
class TextBuilder final {
 public:
  TextBuilder& Add(const char* text);
  TextBuilder& Add(const char* text, size_t length);
  TextBuilder& AddDecimal(uint64_t value);
  const char* c_str() const { return buffer_; }
  size_t size() const { return length_; }
  bool ok() const { return ok_; }

 private:
  char buffer_[512] = {};
  size_t length_ = 0;
  bool ok_ = true;
};

// Iterates over the lines of a text, without the line ends.
class LineReader final {
 public:
  explicit LineReader(Bytes text) : text_(text) {}
  bool Next(Bytes* line);

 private:
  Bytes text_;
  size_t position_ = 0;
};

// Number parsing that stops at the first character that doesn't fit and
// advances *cursor past what it used. False when no digit was found.
bool ParseHex(const char** cursor, const char* end, uint64_t* value);
bool ParseDecimal(const char** cursor, const char* end, uint64_t* value);
void SkipSpaces(const char** cursor, const char* end);
bool StartsWith(Bytes text, const char* prefix);

// Copies size bytes of the dumped address space at address into buffer.
// The writer always shares that address space, so this reads its own,
// through the kernel, which reports an unmapped page instead of faulting.
// Returns the count of bytes read.
size_t ReadMemory(uint64_t address, void* buffer, size_t size);

// Names of the entries of a folder (getdents64; no opendir, which allocates).
// Calls visit(name, context) for each entry but "." and "..".
bool ListFolder(const char* path, void (*visit)(const char* name, void* context), void* context);

// Count of the processors in a kernel cpu list such as "0-3,5,8-11\n";
// 0 when the text is not one.
uint32_t CountCpuList(Bytes text);

// Number of processors from /sys/devices/system/cpu/{present,online}, as a
// count of the cpu ranges listed there.
uint32_t CountProcessors(Arena* arena);

}  // namespace mldbghelp
