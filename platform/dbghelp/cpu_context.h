// Register sets of Linux, turned into the format's AMD64 context.
#pragma once

#include <sys/user.h>
#include <ucontext.h>

#include "platform/dbghelp/minidump_format.h"

namespace mldbghelp {

// From the context that the kernel handed to a signal handler.
void ContextFromSignal(const ucontext_t& signal, ContextAmd64* out);

// From what PTRACE_GETREGS and PTRACE_GETFPREGS report for a stopped thread.
void ContextFromTracer(const user_regs_struct& regs, const user_fpregs_struct& fpregs,
                       ContextAmd64* out);

}  // namespace mldbghelp
