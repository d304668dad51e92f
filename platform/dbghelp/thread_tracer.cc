#include "platform/dbghelp/thread_tracer.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>

#include <cerrno>

#include "platform/dbghelp/cpu_context.h"

namespace mldbghelp {

int SeizeThread(uint32_t tid) {
  if (ptrace(PTRACE_SEIZE, tid, nullptr, nullptr) == 0) return 0;
  return errno;
}

bool StopSeizedThread(uint32_t tid, int* pendingSignal) {
  *pendingSignal = 0;
  if (ptrace(PTRACE_INTERRUPT, tid, nullptr, nullptr) != 0) return false;
  for (;;) {
    int status = 0;
    pid_t r = waitpid(static_cast<pid_t>(tid), &status, __WALL);
    if (r < 0 && errno == EINTR) continue;
    if (r < 0 || !WIFSTOPPED(status)) return false;  // ended meanwhile
    int signal = WSTOPSIG(status);
    // The interrupt shows as a SIGTRAP event stop; a stop at a signal the
    // thread was about to receive is as good for reading registers.
    if ((status >> 16) != PTRACE_EVENT_STOP && signal != SIGTRAP) *pendingSignal = signal;
    if (signal == SIGSTOP && (status >> 16) == PTRACE_EVENT_STOP) *pendingSignal = 0;
    return true;
  }
}

bool ReadThreadContext(uint32_t tid, ContextAmd64* out) {
  user_regs_struct regs{};
  user_fpregs_struct fpregs{};
  if (ptrace(PTRACE_GETREGS, tid, nullptr, &regs) != 0) return false;
  if (ptrace(PTRACE_GETFPREGS, tid, nullptr, &fpregs) != 0) return false;
  ContextFromTracer(regs, fpregs, out);
  return true;
}

void ReleaseThread(uint32_t tid, int pendingSignal) {
  ptrace(PTRACE_DETACH, tid, nullptr, reinterpret_cast<void*>(static_cast<intptr_t>(pendingSignal)));
}

}  // namespace mldbghelp
