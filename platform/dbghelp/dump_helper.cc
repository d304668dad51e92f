#include "platform/dbghelp/dump_helper.h"

#include <linux/futex.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "platform/dbghelp/minidump_file_writer.h"

namespace mldbghelp {
namespace {

constexpr size_t kHelperStackSize = 512 * 1024;
constexpr int64_t kHelperTimeoutNs = 20LL * 1000 * 1000 * 1000;
constexpr int64_t kPollNs = 5 * 1000 * 1000;
constexpr int kTraceRefused = -1;

// Shared by the caller and its helper: it lies at the low end of the
// helper's stack mapping, which both see through CLONE_VM.
struct HelperBlock {
  CaptureRequest request;
  int fd;
  off_t base;
  pid_t creator;           // the process that made the helper
  volatile int go;         // futex: set once the helper may trace us
  volatile int result;     // 0, kTraceRefused or an errno value
  volatile int traceError;
  volatile int childTid;   // cleared by the kernel when the helper ends
};

int64_t NowNs() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return t.tv_sec * 1000000000LL + t.tv_nsec;
}

void FutexWait(volatile int* word, int value, int64_t timeoutNs) {
  timespec timeout{static_cast<time_t>(timeoutNs / 1000000000LL), static_cast<long>(timeoutNs % 1000000000LL)};
  syscall(SYS_futex, word, FUTEX_WAIT, value, &timeout, nullptr, 0);
}

void FutexWake(volatile int* word) { syscall(SYS_futex, word, FUTEX_WAKE, 1, nullptr, nullptr, 0); }

int RunCapture(HelperBlock* block) {
  Arena arena;
  ProcessSnapshot snapshot(&arena);
  snapshot.traceError = block->traceError;
  if (!ReadProcess(block->request, &snapshot)) {
    block->traceError = snapshot.traceError;
    return kTraceRefused;
  }
  int error = WriteMinidump(snapshot, block->request.writerStack, block->fd, block->base);
  ReleaseProcess(&snapshot);
  return error;
}

void BlockSignals() {
  sigset_t all;
  sigfillset(&all);
  syscall(SYS_rt_sigprocmask, SIG_SETMASK, &all, nullptr, sizeof(uint64_t));
}

// The helper process has its own copy of the signal handlers: a fault here
// must end the helper, not run the crashed program's handler once more.
int HelperProcessMain(void* argument) {
  auto* block = static_cast<HelperBlock*>(argument);
  BlockSignals();
  // Useless once the crashed process is gone (another thread's capture may
  // end it meanwhile): die with it rather than linger, adopted, in a wait.
  syscall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0);
  if (syscall(SYS_getppid) != block->creator) return 0;
  struct sigaction fallback {};
  fallback.sa_handler = SIG_DFL;
  static const int kFaults[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS};
  sigset_t faults;
  sigemptyset(&faults);
  for (int signal : kFaults) {
    sigaction(signal, &fallback, nullptr);
    sigaddset(&faults, signal);
  }
  syscall(SYS_rt_sigprocmask, SIG_UNBLOCK, &faults, nullptr, sizeof(uint64_t));

  const int64_t deadline = NowNs() + kHelperTimeoutNs;
  while (!block->go && NowNs() < deadline) FutexWait(&block->go, 0, kPollNs);
  block->result = RunCapture(block);
  return 0;
}

// A thread of the crashed process: it may read /proc/self for its siblings
// even where nobody may trace them. Signals stay blocked, so a fault here
// ends the process instead of re-entering its crash handler.
int HelperThreadMain(void* argument) {
  auto* block = static_cast<HelperBlock*>(argument);
  BlockSignals();
  block->result = RunCapture(block);
  return 0;
}

// Waits until the helper ends: the kernel clears childTid then. A helper
// killed by a core-dumping signal does not clear it, hence the polling.
bool WaitForHelper(HelperBlock* block, pid_t pid, bool isProcess) {
  const int64_t deadline = NowNs() + kHelperTimeoutNs;
  for (;;) {
    if (block->childTid == 0) break;
    if (isProcess) {
      int status = 0;
      if (waitpid(pid, &status, __WALL | WNOHANG) == pid) return true;
    }
    if (NowNs() >= deadline) {
      if (!isProcess) return false;  // a thread can't be killed alone; leave its stack
      kill(pid, SIGKILL);
      break;
    }
    FutexWait(&block->childTid, block->childTid, kPollNs);
  }
  if (isProcess) {
    int status = 0;
    while (waitpid(pid, &status, __WALL) < 0 && errno == EINTR) {
    }
  }
  return true;
}

}  // namespace

int CaptureWithHelper(const CaptureRequest& request, int fd, off_t base) {
  void* memory = mmap(nullptr, kHelperStackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
  if (memory == MAP_FAILED) return errno;
  madvise(memory, kHelperStackSize, MADV_DONTDUMP);
  auto* block = static_cast<HelperBlock*>(memory);
  char* stackTop = static_cast<char*>(memory) + kHelperStackSize;
  block->request = request;
  block->request.writerStack = {reinterpret_cast<uint64_t>(memory), kHelperStackSize};
  block->fd = fd;
  block->base = base;
  block->result = EIO;
  block->childTid = 1;
  block->creator = static_cast<pid_t>(syscall(SYS_getpid));

  bool stackInUse = false;
  if (request.useTracer) {
    const int flags = CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_UNTRACED | CLONE_CHILD_CLEARTID;
    pid_t helper = clone(HelperProcessMain, stackTop, flags, block, nullptr, nullptr, &block->childTid);
    if (helper > 0) {
      // Yama allows only ancestors to trace unless we name the helper.
      prctl(PR_SET_PTRACER, helper, 0, 0, 0);
      block->go = 1;
      FutexWake(&block->go);
      WaitForHelper(block, helper, true);
      prctl(PR_SET_PTRACER, 0, 0, 0, 0);
      if (block->result == 0) {
        munmap(memory, kHelperStackSize);
        return 0;
      }
      if (block->result != kTraceRefused && block->traceError == 0) block->traceError = block->result;
    } else {
      block->traceError = errno;
    }
  }

  // From inside, by a thread of our own on the same stack.
  block->request.useTracer = false;
  block->result = EIO;
  block->childTid = 1;
  const int flags = CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_SIGHAND | CLONE_THREAD | CLONE_SYSVSEM |
                    CLONE_UNTRACED | CLONE_CHILD_CLEARTID;
  pid_t thread = clone(HelperThreadMain, stackTop, flags, block, nullptr, nullptr, &block->childTid);
  if (thread > 0) {
    stackInUse = !WaitForHelper(block, thread, false);
  } else {
    // Last resort: on the caller's own stack.
    block->result = RunCapture(block);
  }
  int result = block->result == kTraceRefused ? EPERM : block->result;
  if (!stackInUse) munmap(memory, kHelperStackSize);
  return result;
}

}  // namespace mldbghelp
