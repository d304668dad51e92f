// Gathers the snapshot of the crashed process that the stream writers
// encode. Runs in the dump's helper (a process or a thread that shares the
// crashed process's memory): signal-safe, no malloc, no locks.
#pragma once

#include <signal.h>
#include <ucontext.h>

#include <cstdint>

#include "platform/dbghelp/minidump_api.h"
#include "platform/dbghelp/process_snapshot.h"

namespace mldbghelp {

struct CaptureRequest {
  uint32_t pid;
  uint32_t dumpType;
  uint32_t exceptionThreadId;  // the faulting thread, or the caller
  bool hasException;
  siginfo_t signalInfo;        // copies, valid when hasException
  const ucontext_t* context;   // registers of exceptionThreadId
  const MINIDUMP_CALLBACK_INFORMATION* callback;  // may be null
  bool useTracer;              // false: read from inside, no ptrace
  MemoryRange writerStack;     // the helper's own stack, left out of dumps
};

// Fills the snapshot. With useTracer, every other thread is stopped first;
// if tracing is refused, returns false with snapshot->traceError set and
// nothing left attached. Otherwise returns true; what could not be read is
// simply absent from the snapshot.
[[nodiscard]] bool ReadProcess(const CaptureRequest& request, ProcessSnapshot* snapshot);

// Lets every thread that ReadProcess stopped go on.
void ReleaseProcess(ProcessSnapshot* snapshot);

}  // namespace mldbghelp
