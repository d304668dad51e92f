// Sequential writing of the dump file with positions as the format's RVAs.
// Signal-safe: one buffer from the arena, pwrite to the caller's descriptor.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "platform/dbghelp/minidump_format.h"

namespace mldbghelp {

class Arena;

class FileWriter final {
 public:
  // Writes begin at base, the descriptor's offset when the dump started.
  FileWriter(int fd, off_t base, Arena* arena);
  FileWriter(const FileWriter&) = delete;
  FileWriter& operator=(const FileWriter&) = delete;

  // Each returns false after the first failure, whose errno error() keeps.
  bool Write(const void* data, size_t size);
  bool WriteZeros(size_t size);
  bool Align(size_t alignment);
  // Copies memory of the dumped address space straight to the file; the
  // kernel reports an unreadable page instead of faulting, and such bytes
  // are written as zeros so that every later offset stays right.
  bool WriteMemory(uint64_t address, uint64_t size);
  // A UTF-16 MINIDUMP_STRING from UTF-8 text; returns its RVA, or 0.
  uint32_t WriteString(const char* utf8);
  // Overwrites bytes written earlier.
  bool WriteAt(uint64_t position, const void* data, size_t size);
  bool Flush();

  uint64_t position() const { return position_; }
  uint32_t rva() const { return static_cast<uint32_t>(position_); }
  int error() const { return error_; }

 private:
  bool Fail(int error);
  bool PwriteAll(const void* data, size_t size, uint64_t position);

  int fd_;
  off_t base_;
  char* buffer_;
  size_t buffered_ = 0;
  uint64_t position_ = 0;  // relative to base_, counting buffered bytes
  int error_ = 0;
};

}  // namespace mldbghelp
