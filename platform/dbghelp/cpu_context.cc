#include "platform/dbghelp/cpu_context.h"

#include <cstring>

namespace mldbghelp {

void ContextFromSignal(const ucontext_t& signal, ContextAmd64* out) {
  std::memset(out, 0, sizeof(*out));
  const greg_t* g = signal.uc_mcontext.gregs;
  out->contextFlags = kContextFull;
  out->rax = static_cast<uint64_t>(g[REG_RAX]);
  out->rcx = static_cast<uint64_t>(g[REG_RCX]);
  out->rdx = static_cast<uint64_t>(g[REG_RDX]);
  out->rbx = static_cast<uint64_t>(g[REG_RBX]);
  out->rsp = static_cast<uint64_t>(g[REG_RSP]);
  out->rbp = static_cast<uint64_t>(g[REG_RBP]);
  out->rsi = static_cast<uint64_t>(g[REG_RSI]);
  out->rdi = static_cast<uint64_t>(g[REG_RDI]);
  out->r8 = static_cast<uint64_t>(g[REG_R8]);
  out->r9 = static_cast<uint64_t>(g[REG_R9]);
  out->r10 = static_cast<uint64_t>(g[REG_R10]);
  out->r11 = static_cast<uint64_t>(g[REG_R11]);
  out->r12 = static_cast<uint64_t>(g[REG_R12]);
  out->r13 = static_cast<uint64_t>(g[REG_R13]);
  out->r14 = static_cast<uint64_t>(g[REG_R14]);
  out->r15 = static_cast<uint64_t>(g[REG_R15]);
  out->rip = static_cast<uint64_t>(g[REG_RIP]);
  out->eflags = static_cast<uint32_t>(g[REG_EFL]);
  // cs, gs, fs and (on newer kernels) ss share one word.
  uint64_t segments = static_cast<uint64_t>(g[REG_CSGSFS]);
  out->cs = static_cast<uint16_t>(segments);
  out->gs = static_cast<uint16_t>(segments >> 16);
  out->fs = static_cast<uint16_t>(segments >> 32);
  out->ss = static_cast<uint16_t>(segments >> 48);
  if (out->ss == 0) out->ss = 0x2b;  // the user data selector on x86-64
  if (signal.uc_mcontext.fpregs) {
    static_assert(sizeof(*signal.uc_mcontext.fpregs) == sizeof(out->fltSave));
    std::memcpy(&out->fltSave, signal.uc_mcontext.fpregs, sizeof(out->fltSave));
    out->mxCsr = out->fltSave.mxCsr;
  }
}

void ContextFromTracer(const user_regs_struct& regs, const user_fpregs_struct& fpregs,
                       ContextAmd64* out) {
  std::memset(out, 0, sizeof(*out));
  out->contextFlags = kContextFull;
  out->rax = regs.rax;
  out->rcx = regs.rcx;
  out->rdx = regs.rdx;
  out->rbx = regs.rbx;
  out->rsp = regs.rsp;
  out->rbp = regs.rbp;
  out->rsi = regs.rsi;
  out->rdi = regs.rdi;
  out->r8 = regs.r8;
  out->r9 = regs.r9;
  out->r10 = regs.r10;
  out->r11 = regs.r11;
  out->r12 = regs.r12;
  out->r13 = regs.r13;
  out->r14 = regs.r14;
  out->r15 = regs.r15;
  out->rip = regs.rip;
  out->eflags = static_cast<uint32_t>(regs.eflags);
  out->cs = static_cast<uint16_t>(regs.cs);
  out->ss = static_cast<uint16_t>(regs.ss);
  out->ds = static_cast<uint16_t>(regs.ds);
  out->es = static_cast<uint16_t>(regs.es);
  out->fs = static_cast<uint16_t>(regs.fs);
  out->gs = static_cast<uint16_t>(regs.gs);
  static_assert(sizeof(fpregs) == sizeof(out->fltSave));
  std::memcpy(&out->fltSave, &fpregs, sizeof(out->fltSave));
  out->mxCsr = fpregs.mxcsr;
}

}  // namespace mldbghelp
