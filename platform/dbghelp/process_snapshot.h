// The facts of one crashed process, gathered before any byte of the dump
// is encoded. The stream writers read only this; the process reader alone
// knows /proc, ptrace and the signal context. All storage lies in an arena.
#pragma once

#include <sys/utsname.h>

#include <cstdint>

#include "platform/dbghelp/arena.h"
#include "platform/dbghelp/minidump_format.h"
#include "platform/dbghelp/system_files.h"

namespace mldbghelp {

// One line of /proc/<pid>/maps.
struct Mapping {
  uint64_t start;
  uint64_t end;
  uint64_t offset;
  uint64_t inode;
  uint32_t device;  // major << 8 | minor, enough to tell files apart
  bool readable;
  bool writable;
  bool executable;
  // From smaps, read for full-memory dumps only: marked MADV_DONTDUMP, or
  // never touched (nothing resident or swapped: it reads as zeros).
  bool dontDump;
  bool untouched;
  const char* path;  // "" for anonymous memory
};

struct MemoryRange {
  uint64_t start;
  uint64_t size;
};

struct ThreadSnapshot {
  uint32_t tid;
  bool hasContext;       // registers known (signal context or tracer)
  bool attached;         // stopped by the tracer; must be detached
  int pendingSignal;     // signal that stopped it instead, given back on detach
  int contextError;      // errno of why the registers are missing
  uint32_t writeFlags;   // ThreadWrite* flags left by the callback
  uint64_t stackPointer; // 0 when unknown
  uint64_t instructionPointer;
  MemoryRange stack;     // size 0 when no stack was found
  ContextAmd64 context;  // contextFlags 0 when registers are missing
};

struct ModuleSnapshot {
  uint64_t base;
  uint64_t size;
  const char* path;
  uint32_t firstMapping;  // index range in ProcessSnapshot::mappings
  uint32_t lastMapping;
  uint32_t writeFlags;    // ModuleWrite* flags left by the callback
  uint32_t buildIdSize;
  uint8_t buildId[64];
};

struct FileDescriptorSnapshot {
  int fd;
  uint32_t flags;       // open flags from fdinfo
  const char* target;   // what /proc/<pid>/fd/<n> links to
};

struct ThreadTimes {
  uint32_t tid;
  uint64_t userTicks;
  uint64_t systemTicks;
  uint64_t startTicks;  // since boot
  uint64_t affinity;    // first 64 processors
};

struct LinkMapEntry {
  uint64_t addr;
  uint64_t ld;
  const char* name;
};

struct ProcessSnapshot {
  explicit ProcessSnapshot(Arena* arena)
      : arena(arena), mappings(arena), threads(arena), modules(arena), fds(arena),
        threadTimes(arena), linkMap(arena), extraMemory(arena) {}

  Arena* arena;
  uint32_t pid = 0;
  uint32_t dumpType = 0;
  uint32_t captureMethod = kCaptureByTracer;
  int traceError = 0;

  bool hasException = false;
  uint32_t exceptionThreadId = 0;
  int signalNumber = 0;
  int signalCode = 0;
  uint64_t faultAddress = 0;

  ArenaVector<Mapping> mappings;
  ArenaVector<ThreadSnapshot> threads;
  ArenaVector<ModuleSnapshot> modules;
  ArenaVector<FileDescriptorSnapshot> fds;
  ArenaVector<ThreadTimes> threadTimes;
  ArenaVector<LinkMapEntry> linkMap;
  // Besides the stacks: code around each instruction pointer, and the data
  // segments at 0x105. Sorted and merged.
  ArenaVector<MemoryRange> extraMemory;

  // Raw /proc and /etc texts for the Linux streams; size 0 when unreadable.
  Bytes procStatus, procMaps, cmdLine, environ, auxv, cpuInfo, osRelease;

  struct utsname uname = {};
  uint32_t processorCount = 1;
  uint32_t cpuVendor[3] = {};
  uint32_t cpuVersion = 0;  // cpuid leaf 1 eax
  uint32_t cpuFeatures = 0;
  uint32_t cpuAmdFeatures = 0;
  uint16_t cpuFamily = 0;
  uint16_t cpuModelStepping = 0;

  uint64_t processStartTicks = 0;
  uint64_t processUserTicks = 0;
  uint64_t processSystemTicks = 0;
  uint64_t bootTime = 0;  // seconds since the epoch
  uint64_t clockTicksPerSecond = 100;

  uint64_t rDebugVersion = 0, rDebugBrk = 0, rDebugLdBase = 0, dynamicAddress = 0;
};

}  // namespace mldbghelp
