// What a process can learn about itself from /proc: the stand-ins for the
// other platform's module and thread snapshots and its memory counters.
//
// Every function reads /proc afresh and keeps no state. They allocate (text
// buffers) but take no lock, so a crashing process may call them as the
// rest of its capture does. Which Linux figure stands for which counter, and
// why, is in docs/process_facts.md.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace platform {

// In bytes, except the fault count.
struct ProcessMemoryCounters {
  std::uint64_t pageFaultCount = 0;
  std::uint64_t peakWorkingSetSize = 0;
  std::uint64_t workingSetSize = 0;
  std::uint64_t quotaPeakPagedPoolUsage = 0;
  std::uint64_t quotaPagedPoolUsage = 0;
  std::uint64_t quotaPeakNonPagedPoolUsage = 0;
  std::uint64_t quotaNonPagedPoolUsage = 0;
  std::uint64_t pageFileUsage = 0;
  std::uint64_t peakPageFileUsage = 0;
};

// The calling process's counters; false if /proc could not be read, with
// the destination untouched.
bool ReadProcessMemoryCounters(ProcessMemoryCounters& counters);

// ELF objects mapped into the process: every readable mapping at file
// offset 0 that starts with the ELF magic and is backed by a file or is the
// vDSO. 0 on failure.
std::uint32_t CountProcessModules(pid_t processId);

// Entries of /proc/<id>/task; 0 on failure.
std::uint32_t CountProcessThreads(pid_t processId);

// The running executable's path (UTF-8); empty on failure.
std::string ExecutablePath();

// The process's arguments joined by single blanks, as the other platform's
// single command line; empty on failure.
std::string CommandLineText();

}  // namespace platform
