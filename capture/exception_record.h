// What a top-level filter receives about a fault: the other platform's
// exception record, with the Linux signal facts it was made from.
//
// Exception codes keep their published values, mapped from the signal and
// its si_code, so the rest of the system (names in the log, the crash
// record, the report) sees the codes it was written for. Everything here is
// plain arithmetic without locks or allocation: it runs in a signal handler.
#pragma once

#include <signal.h>
#include <ucontext.h>

#include <cstdint>

namespace Marlowen {

inline constexpr std::uint32_t kExceptionDatatypeMisalignment = 0x80000002u;
inline constexpr std::uint32_t kExceptionBreakpoint = 0x80000003u;
inline constexpr std::uint32_t kExceptionSingleStep = 0x80000004u;
inline constexpr std::uint32_t kExceptionAccessViolation = 0xC0000005u;
inline constexpr std::uint32_t kExceptionInPageError = 0xC0000006u;
inline constexpr std::uint32_t kExceptionIllegalInstruction = 0xC000001Du;
inline constexpr std::uint32_t kExceptionNoncontinuable = 0xC0000025u;
inline constexpr std::uint32_t kExceptionInvalidDisposition = 0xC0000026u;
inline constexpr std::uint32_t kExceptionArrayBoundsExceeded = 0xC000008Cu;
inline constexpr std::uint32_t kExceptionFltDenormalOperand = 0xC000008Du;
inline constexpr std::uint32_t kExceptionFltDivideByZero = 0xC000008Eu;
inline constexpr std::uint32_t kExceptionFltInexactResult = 0xC000008Fu;
inline constexpr std::uint32_t kExceptionFltInvalidOperation = 0xC0000090u;
inline constexpr std::uint32_t kExceptionFltOverflow = 0xC0000091u;
inline constexpr std::uint32_t kExceptionFltStackCheck = 0xC0000092u;
inline constexpr std::uint32_t kExceptionFltUnderflow = 0xC0000093u;
inline constexpr std::uint32_t kExceptionIntDivideByZero = 0xC0000094u;
inline constexpr std::uint32_t kExceptionIntOverflow = 0xC0000095u;
inline constexpr std::uint32_t kExceptionPrivInstruction = 0xC0000096u;
inline constexpr std::uint32_t kExceptionStackOverflow = 0xC00000FDu;
// A bad system call (SIGSYS): the other platform's "invalid system service".
inline constexpr std::uint32_t kExceptionInvalidSystemService = 0xC000001Cu;
// abort(): what the other platform's runtime raises for a fatal exit.
inline constexpr std::uint32_t kExceptionFatalAppExit = 0x40000015u;
// The C++ runtime's code for a thrown object; std::terminate reports it.
inline constexpr std::uint32_t kExceptionCxxThrow = 0xE06D7363u;

inline constexpr std::uint32_t kExceptionNoncontinuableFlag = 1;
inline constexpr std::uint32_t kExceptionMaximumParameters = 15;

struct EXCEPTION_RECORD {
  std::uint32_t ExceptionCode = 0;
  std::uint32_t ExceptionFlags = 0;
  EXCEPTION_RECORD* ExceptionRecord = nullptr;
  void* ExceptionAddress = nullptr;  // the program counter of the fault
  std::uint32_t NumberParameters = 0;
  // Access violations: [0] 0 read, 1 write; [1] the address touched.
  std::uintptr_t ExceptionInformation[kExceptionMaximumParameters] = {};
};

// Owned by whoever raised the fault (the signal frame, or the terminate
// handler's stack); a filter only borrows them.
struct EXCEPTION_POINTERS {
  EXCEPTION_RECORD* ExceptionRecord = nullptr;
  ucontext_t* ContextRecord = nullptr;
  siginfo_t* SignalInfo = nullptr;
};

// How far from the stack pointer a fault still counts as one in the stack's
// guard area. Frames larger than this skip the guard entirely and are not
// told apart from other access violations.
inline constexpr std::uintptr_t kStackGuardReach = 64 * 1024;

// True for a SIGSEGV whose address lies within kStackGuardReach of the stack
// pointer at the fault: a valid stack address next to the stack pointer
// never faults, so such a fault is the guard page below a full stack.
bool IsStackGuardFault(const siginfo_t& info, const ucontext_t& context);

// The exception code for a signal, by signal number and si_code.
std::uint32_t ExceptionCodeForSignal(const siginfo_t& info, const ucontext_t& context);

// Fills record for a signal: code, flags, the program counter of the fault
// as the address, and for access violations the read/write flag and the
// address touched.
void FillExceptionRecord(const siginfo_t& info, const ucontext_t& context, EXCEPTION_RECORD& record);

}  // namespace Marlowen
