#include "platform/process_facts.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/file_io.h"

namespace {

constexpr char kElfMagic[4] = {0x7f, 'E', 'L', 'F'};

std::string ProcPath(pid_t processId, const char* leaf) {
  return "/proc/" + std::to_string(processId) + "/" + leaf;
}

// The number behind "<key>:" in /proc/<id>/status, in bytes for "kB" lines.
std::uint64_t StatusValue(std::string_view status, std::string_view key) {
  std::size_t at = 0;
  while (at < status.size()) {
    std::size_t end = status.find('\n', at);
    if (end == std::string_view::npos) end = status.size();
    std::string_view line = status.substr(at, end - at);
    if (line.size() > key.size() && line.substr(0, key.size()) == key &&
        line[key.size()] == ':') {
      std::string value(line.substr(key.size() + 1));
      char* rest = nullptr;
      std::uint64_t number = std::strtoull(value.c_str(), &rest, 10);
      if (rest && std::string_view(rest).find("kB") != std::string_view::npos) number *= 1024;
      return number;
    }
    at = end + 1;
  }
  return 0;
}

bool StartsWithElfMagic(pid_t processId, std::uintptr_t address, const std::string& file) {
  char head[sizeof kElfMagic] = {};
  iovec local{head, sizeof head};
  iovec remote{reinterpret_cast<void*>(address), sizeof head};
  // Reading through the kernel cannot fault, even for a mapping that
  // vanishes meanwhile.
  if (process_vm_readv(processId, &local, 1, &remote, 1, 0) ==
      static_cast<ssize_t>(sizeof head)) {
    return std::memcmp(head, kElfMagic, sizeof head) == 0;
  }
  if (file.empty() || file[0] != '/') return false;
  int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  bool elf = pread(fd, head, sizeof head, 0) == static_cast<ssize_t>(sizeof head) &&
             std::memcmp(head, kElfMagic, sizeof head) == 0;
  close(fd);
  return elf;
}

}  // namespace

namespace platform {

bool ReadProcessMemoryCounters(ProcessMemoryCounters& counters) {
  std::string stat;
  std::string status;
  if (!ReadWholeFile("/proc/self/stat", stat) || !ReadWholeFile("/proc/self/status", status)) {
    return false;
  }
  // The command name in parentheses may hold blanks; fields count from
  // behind its closing parenthesis: state is field 3, minflt 10, majflt 12.
  std::size_t close = stat.rfind(')');
  if (close == std::string::npos) return false;
  std::uint64_t fields[10] = {};
  const char* p = stat.c_str() + close + 1;
  for (int field = 3; field <= 12; ++field) {
    while (*p == ' ') ++p;
    char* end = nullptr;
    fields[field - 3] = std::strtoull(p, &end, 10);
    if (end == p) {
      while (*p && *p != ' ') ++p;  // the state letter
    } else {
      p = end;
    }
  }
  ProcessMemoryCounters result;
  result.pageFaultCount = fields[10 - 3] + fields[12 - 3];
  result.peakWorkingSetSize = StatusValue(status, "VmHWM");
  result.workingSetSize = StatusValue(status, "VmRSS");
  // Kernel memory is never paged out: no paged pool to charge.
  result.quotaPeakPagedPoolUsage = 0;
  result.quotaPagedPoolUsage = 0;
  // Page tables are the kernel memory that the process holds; no peak is
  // kept for them.
  result.quotaNonPagedPoolUsage = StatusValue(status, "VmPTE");
  result.quotaPeakNonPagedPoolUsage = result.quotaNonPagedPoolUsage;
  // Private writable memory is what the other platform charges to the page
  // file; Linux keeps no peak of it either.
  result.pageFileUsage = StatusValue(status, "VmData") + StatusValue(status, "VmStk");
  result.peakPageFileUsage = result.pageFileUsage;
  counters = result;
  return true;
}

std::uint32_t CountProcessModules(pid_t processId) {
  std::string maps;
  if (!ReadWholeFile(ProcPath(processId, "maps"), maps)) return 0;
  std::uint32_t count = 0;
  std::size_t at = 0;
  while (at < maps.size()) {
    std::size_t end = maps.find('\n', at);
    if (end == std::string::npos) end = maps.size();
    std::string line = maps.substr(at, end - at);
    at = end + 1;

    // start-end perms offset dev inode [path]
    unsigned long long start = 0, stop = 0, offset = 0, inode = 0;
    char perms[5] = {};
    char device[16] = {};
    int pathAt = 0;
    if (std::sscanf(line.c_str(), "%llx-%llx %4s %llx %15s %llu %n", &start, &stop, perms, &offset,
                    device, &inode, &pathAt) < 6) {
      continue;
    }
    std::string path = pathAt > 0 ? line.substr(static_cast<std::size_t>(pathAt)) : std::string();
    if (offset != 0 || perms[0] != 'r') continue;
    if (inode == 0 && path != "[vdso]") continue;
    if (StartsWithElfMagic(processId, static_cast<std::uintptr_t>(start), path)) ++count;
  }
  return count;
}

std::uint32_t CountProcessThreads(pid_t processId) {
  int fd = open(ProcPath(processId, "task").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return 0;
  std::uint32_t count = 0;
  alignas(8) char buffer[4096];
  for (;;) {
    long n = syscall(SYS_getdents64, fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n < 0) count = 0;
      break;
    }
    for (long offset = 0; offset < n;) {
      // struct linux_dirent64: ino (8), off (8), reclen (2), type (1), name.
      unsigned short recordLength;
      std::memcpy(&recordLength, buffer + offset + 16, sizeof recordLength);
      const char* name = buffer + offset + 19;
      if (name[0] >= '0' && name[0] <= '9') ++count;
      offset += recordLength;
    }
  }
  close(fd);
  return count;
}

std::string ExecutablePath() {
  char buffer[PATH_MAX + 1];
  ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer);
  if (n <= 0 || n >= static_cast<ssize_t>(sizeof buffer)) return std::string();
  return std::string(buffer, static_cast<std::size_t>(n));
}

std::string CommandLineText() {
  std::string arguments;
  if (!ReadWholeFile("/proc/self/cmdline", arguments)) return std::string();
  while (!arguments.empty() && arguments.back() == '\0') arguments.pop_back();
  std::replace(arguments.begin(), arguments.end(), '\0', ' ');
  return arguments;
}

}  // namespace platform
