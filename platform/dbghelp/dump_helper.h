// Runs the capture away from the crashed thread's own stack and heap.
//
// First choice: a helper process cloned with the crashed process's memory
// (CLONE_VM) and allowed to trace it (PR_SET_PTRACER, for Yama). It stops
// every other thread with ptrace, reads their registers and writes the dump
// while the calling thread waits. When tracing is refused, or the helper
// fails, a helper thread of the process itself writes the dump from inside:
// the faulting thread keeps the registers of its signal context, the others
// are written without registers (see docs/minidump.md).
//
// Everything here runs in the caller's signal handler: system calls only.
#pragma once

#include <sys/types.h>

#include "platform/dbghelp/process_reader.h"

namespace mldbghelp {

// Returns 0 when the dump was written, else an errno value.
[[nodiscard]] int CaptureWithHelper(const CaptureRequest& request, int fd, off_t base);

}  // namespace mldbghelp
