// Stopping and reading the other threads of the crashed process with
// ptrace, from the helper process. Each call is one or two system calls.
#pragma once

#include <cstdint>

#include "platform/dbghelp/minidump_format.h"

namespace mldbghelp {

// Attaches without sending a signal. Returns 0 or the errno: EPERM or
// EACCES mean tracing is refused; ESRCH that the thread has ended.
[[nodiscard]] int SeizeThread(uint32_t tid);

// Asks a seized thread to stop and waits until it has. A thread that stops
// for a signal of its own instead gets that signal back on release.
[[nodiscard]] bool StopSeizedThread(uint32_t tid, int* pendingSignal);

// General and floating-point registers of a stopped thread.
[[nodiscard]] bool ReadThreadContext(uint32_t tid, ContextAmd64* out);

// Lets the thread go on, handing back a signal it stopped for.
void ReleaseThread(uint32_t tid, int pendingSignal);

}  // namespace mldbghelp
