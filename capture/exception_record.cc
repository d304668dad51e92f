#include "capture/exception_record.h"

namespace Marlowen {
namespace {

// x86-64 page-fault error code: bit 1 is set for a write.
constexpr greg_t kPageFaultWriteBit = 2;

std::uintptr_t StackPointer(const ucontext_t& context) {
  return static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RSP]);
}

std::uintptr_t ProgramCounter(const ucontext_t& context) {
  return static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RIP]);
}

std::uint32_t BusErrorCode(int code) {
  switch (code) {
    case BUS_ADRALN: return kExceptionDatatypeMisalignment;
    case BUS_ADRERR:
    case BUS_OBJERR:
    case BUS_MCEERR_AR:
    case BUS_MCEERR_AO: return kExceptionInPageError;
    default: return kExceptionAccessViolation;
  }
}

std::uint32_t IllegalInstructionCode(int code) {
  switch (code) {
    case ILL_PRVOPC:
    case ILL_PRVREG: return kExceptionPrivInstruction;
    default: return kExceptionIllegalInstruction;
  }
}

std::uint32_t ArithmeticCode(int code) {
  switch (code) {
    case FPE_INTDIV: return kExceptionIntDivideByZero;
    case FPE_INTOVF: return kExceptionIntOverflow;
    case FPE_FLTDIV: return kExceptionFltDivideByZero;
    case FPE_FLTOVF: return kExceptionFltOverflow;
    case FPE_FLTUND: return kExceptionFltUnderflow;
    case FPE_FLTRES: return kExceptionFltInexactResult;
    case FPE_FLTSUB: return kExceptionArrayBoundsExceeded;
    default: return kExceptionFltInvalidOperation;
  }
}

std::uint32_t TrapCode(int code) {
  // int3 arrives as SI_KERNEL on x86, a hardware breakpoint as TRAP_BRKPT.
  return code == TRAP_TRACE ? kExceptionSingleStep : kExceptionBreakpoint;
}

}  // namespace

bool IsStackGuardFault(const siginfo_t& info, const ucontext_t& context) {
  if (info.si_signo != SIGSEGV) return false;
  if (info.si_code != SEGV_MAPERR && info.si_code != SEGV_ACCERR) return false;
  const auto address = reinterpret_cast<std::uintptr_t>(info.si_addr);
  const std::uintptr_t stackPointer = StackPointer(context);
  const std::uintptr_t distance = address > stackPointer ? address - stackPointer : stackPointer - address;
  return distance < kStackGuardReach;
}

std::uint32_t ExceptionCodeForSignal(const siginfo_t& info, const ucontext_t& context) {
  switch (info.si_signo) {
    case SIGSEGV:
      return IsStackGuardFault(info, context) ? kExceptionStackOverflow : kExceptionAccessViolation;
    case SIGBUS: return BusErrorCode(info.si_code);
    case SIGILL: return IllegalInstructionCode(info.si_code);
    case SIGFPE: return ArithmeticCode(info.si_code);
    case SIGTRAP: return TrapCode(info.si_code);
    case SIGABRT: return kExceptionFatalAppExit;
    case SIGSYS: return kExceptionInvalidSystemService;
    default: return kExceptionNoncontinuable;
  }
}

void FillExceptionRecord(const siginfo_t& info, const ucontext_t& context, EXCEPTION_RECORD& record) {
  record = EXCEPTION_RECORD{};
  record.ExceptionCode = ExceptionCodeForSignal(info, context);
  record.ExceptionFlags = kExceptionNoncontinuableFlag;
  record.ExceptionAddress = reinterpret_cast<void*>(ProgramCounter(context));
  if (record.ExceptionCode == kExceptionAccessViolation || record.ExceptionCode == kExceptionStackOverflow ||
      record.ExceptionCode == kExceptionInPageError) {
    const bool write = (context.uc_mcontext.gregs[REG_ERR] & kPageFaultWriteBit) != 0;
    record.NumberParameters = 2;
    record.ExceptionInformation[0] = write ? 1 : 0;
    record.ExceptionInformation[1] = reinterpret_cast<std::uintptr_t>(info.si_addr);
  }
}

}  // namespace Marlowen
