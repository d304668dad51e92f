// The process-wide unhandled-exception filter and the process services that
// the capture leans on.
//
// The filter is one atomic pointer. The fault handlers (capture/
// fault_handlers.h) call whatever it holds at the moment of a fault; setting
// it is an exchange, which is the capture's only guard against re-entry.
// All functions here are async-signal-safe.
#pragma once

#include <cstdint>

#include "capture/exception_record.h"

namespace Marlowen {

// Returns 1 (handled), 2 or does not return; see HandleTopLevelException.
using TopLevelExceptionFilter = std::int32_t (*)(EXCEPTION_POINTERS* exceptionPointers);

// Swaps in filter (null removes it) and returns the one it replaces.
TopLevelExceptionFilter SetUnhandledExceptionFilter(TopLevelExceptionFilter filter);
// The filter registered now, or null.
TopLevelExceptionFilter CurrentUnhandledExceptionFilter();

// Ends the process at once with the low 8 bits of code as its exit status
// (0xFFFFFFFE is 254): no atexit handlers, no flushing of stdio.
[[noreturn]] void ExitProcess(std::uint32_t code);

// The kernel's id of the calling thread (gettid) and of the process.
std::uint32_t GetCurrentThreadId();
std::uint32_t GetCurrentProcessId();

}  // namespace Marlowen
