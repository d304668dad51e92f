// A minidump file read into memory and taken apart, for the reader tool
// and the tests. Written apart from the dump library: it shares no code
// with the writer, so it checks the writer instead of agreeing with it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace minidump_reader {

struct ThreadRecord {
  uint32_t id = 0;
  uint32_t contextFlags = 0;  // 0: the dump has no registers for it
  uint64_t rip = 0, rsp = 0, rbp = 0;
  uint64_t stackStart = 0, stackSize = 0;
};

struct ModuleRecord {
  uint64_t base = 0;
  uint32_t size = 0;
  std::string path;
  std::string buildId;  // lower-case hex, empty when the dump has none
};

struct ExceptionRecord {
  uint32_t threadId = 0;
  uint32_t signal = 0;
  uint32_t code = 0;
  uint64_t address = 0;
};

struct SystemRecord {
  uint16_t architecture = 0;
  uint16_t family = 0;
  uint16_t modelStepping = 0;
  uint32_t processors = 0;
  uint32_t platformId = 0;
  std::string osText;
};

struct MemoryRegion {
  uint64_t start = 0;
  uint64_t size = 0;
  uint64_t fileOffset = 0;
};

struct HandleRecord {
  uint64_t handle = 0;
  std::string type;
  std::string target;
};

struct ThreadInfoRecord {
  uint32_t id = 0;
  uint32_t dumpFlags = 0;
  uint32_t dumpError = 0;
};

struct CaptureRecord {
  uint32_t method = 0;  // 1 tracer, 2 from inside
  int32_t traceError = 0;
  std::vector<uint32_t> threadsWithoutContext;
};

class MinidumpFile {
 public:
  // False with a reason when the file is not a whole, well-formed minidump.
  bool Open(const std::string& path, std::string* error);

  uint64_t flags() const { return flags_; }
  const std::vector<std::pair<uint32_t, std::pair<uint32_t, uint32_t>>>& directory() const {
    return directory_;
  }
  const std::vector<ThreadRecord>& threads() const { return threads_; }
  const std::vector<ModuleRecord>& modules() const { return modules_; }
  const std::optional<ExceptionRecord>& exception() const { return exception_; }
  const std::optional<SystemRecord>& system() const { return system_; }
  // Regions of the 32-bit memory list, then of the 64-bit one.
  const std::vector<MemoryRegion>& memoryList() const { return memory_; }
  const std::vector<MemoryRegion>& memory64List() const { return memory64_; }
  const std::vector<HandleRecord>& handles() const { return handles_; }
  const std::vector<ThreadInfoRecord>& threadInfo() const { return threadInfo_; }
  const std::optional<CaptureRecord>& capture() const { return capture_; }
  std::vector<std::string> dsoNames() const { return dsoNames_; }

  bool HasStream(uint32_t type) const;
  // The raw bytes of a stream; empty when absent.
  std::string Stream(uint32_t type) const;
  // Bytes of the dumped memory at address, from either list; empty when
  // the dump doesn't hold all of them.
  std::string ReadMemory(uint64_t address, uint64_t size) const;
  // True when the 8-byte value occurs anywhere in the dumped memory.
  bool MemoryContains(uint64_t value) const;

 private:
  bool Fail(std::string* error, const std::string& why);
  bool Range(uint64_t offset, uint64_t size) const { return offset <= bytes_.size() && size <= bytes_.size() - offset; }
  template <typename T>
  T At(uint64_t offset) const;
  bool ReadString(uint32_t rva, std::string* out) const;
  bool ParseStreams(std::string* error);

  std::string bytes_;
  uint64_t flags_ = 0;
  std::vector<std::pair<uint32_t, std::pair<uint32_t, uint32_t>>> directory_;  // type, (size, rva)
  std::vector<ThreadRecord> threads_;
  std::vector<ModuleRecord> modules_;
  std::optional<ExceptionRecord> exception_;
  std::optional<SystemRecord> system_;
  std::vector<MemoryRegion> memory_;
  std::vector<MemoryRegion> memory64_;
  std::vector<HandleRecord> handles_;
  std::vector<ThreadInfoRecord> threadInfo_;
  std::optional<CaptureRecord> capture_;
  std::vector<std::string> dsoNames_;
};

// Name of a stream type for people ("ThreadList", "LinuxMaps", ...).
std::string StreamName(uint32_t type);

// The whole dump as plain text: streams, system, threads, modules, exception.
std::string Describe(const MinidumpFile& dump);

}  // namespace minidump_reader
