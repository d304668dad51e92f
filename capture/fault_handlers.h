// Where faults enter the capture on Linux: the signal handlers and the
// std::terminate handler, which turn a fault into EXCEPTION_POINTERS and hand
// it to the registered unhandled-exception filter on the failing thread.
//
// Signals: SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP, SIGABRT and SIGSYS, with
// SA_SIGINFO | SA_ONSTACK | SA_NODEFER. SA_NODEFER lets a fault inside the
// capture enter the handler again, and with it the nested filter.
//
// Alternate stacks. A stack overflow can only be seen on an alternate signal
// stack, and each thread needs its own; a thread does not inherit one, and a
// handler cannot make one for the thread that faults. So:
// - InstallFaultHandlers gives the calling thread (normally the main thread)
//   an alternate stack, and PrepareThreadForFaults does the same for any
//   other thread that calls it; that stack is freed when the thread ends.
// - On a thread without one, the handler runs on the faulting stack. Every
//   fault is captured there except a stack overflow, which the kernel cannot
//   deliver: that thread's overflow ends the process by SIGSEGV, uncaptured.
//
// When the filter returns (a disposition other than 0) or no filter is
// registered, the signal's default action is restored and the signal sent
// again, so the process ends as it would have without the capture.
#pragma once

#include <cstddef>

namespace Marlowen {

// Bytes of each alternate stack, beside one guard page below it. Room for the
// capture's strings, two log calls and the loader; the dump library brings
// its own stack.
inline constexpr std::size_t kAlternateStackSize = 256 * 1024;

// Installs the signal handlers and the terminate handler (once per process;
// later calls only prepare the calling thread) and prepares the calling
// thread. False if a handler could not be installed.
[[nodiscard]] bool InstallFaultHandlers();

// Gives the calling thread an alternate signal stack, unless it has one.
// False if none could be mapped.
bool PrepareThreadForFaults();

}  // namespace Marlowen
