// This file is careful to do only signal-safe things in its handlers: they
// build the exception record on the stack and call the registered filter,
// which is where the capture's own (documented) allocation begins.
#include "capture/fault_handlers.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <exception>

#include "capture/exception_record.h"
#include "capture/unhandled_exception_filter.h"

namespace Marlowen {
namespace {

constexpr int kFaultSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP, SIGABRT, SIGSYS};

std::atomic<bool> g_installed{false};

// Ends the process as the signal would have without a handler.
void RedeliverWithDefaultAction(int signalNumber) {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigemptyset(&action.sa_mask);
  sigaction(signalNumber, &action, nullptr);
  sigset_t unblock;
  sigemptyset(&unblock);
  sigaddset(&unblock, signalNumber);
  sigprocmask(SIG_UNBLOCK, &unblock, nullptr);
  syscall(SYS_tgkill, getpid(), gettid(), signalNumber);
  // A fault re-executes the faulting instruction on return and ends there.
}

void OnFaultSignal(int signalNumber, siginfo_t* info, void* rawContext) {
  auto* context = static_cast<ucontext_t*>(rawContext);
  EXCEPTION_RECORD record;
  FillExceptionRecord(*info, *context, record);
  EXCEPTION_POINTERS pointers{&record, context, info};
  if (TopLevelExceptionFilter filter = CurrentUnhandledExceptionFilter()) filter(&pointers);
  RedeliverWithDefaultAction(signalNumber);
}

// An uncaught C++ exception: no signal frame exists, so the thread's context
// is taken here and the signal facts are made up as abort() would send them.
[[noreturn]] void OnTerminate() {
  ucontext_t context;
  getcontext(&context);
  siginfo_t info{};
  info.si_signo = SIGABRT;
  info.si_code = SI_TKILL;
  info.si_pid = getpid();
  info.si_uid = getuid();
  EXCEPTION_RECORD record;
  record.ExceptionCode = kExceptionCxxThrow;
  record.ExceptionFlags = kExceptionNoncontinuableFlag;
  record.ExceptionAddress = reinterpret_cast<void*>(context.uc_mcontext.gregs[REG_RIP]);
  EXCEPTION_POINTERS pointers{&record, &context, &info};
  if (TopLevelExceptionFilter filter = CurrentUnhandledExceptionFilter()) filter(&pointers);
  RedeliverWithDefaultAction(SIGABRT);
  std::abort();
}

// Owns the calling thread's alternate stack and gives it back when the thread
// ends: first switched off, then unmapped, so no signal can land on freed
// memory.
class AlternateStack final {
 public:
  AlternateStack() = default;
  ~AlternateStack() {
    if (mapping_ == nullptr) return;
    stack_t off{};
    off.ss_flags = SS_DISABLE;
    sigaltstack(&off, nullptr);
    munmap(mapping_, length_);
  }
  AlternateStack(const AlternateStack&) = delete;
  AlternateStack& operator=(const AlternateStack&) = delete;

  bool Prepare() {
    if (mapping_ != nullptr) return true;
    stack_t current{};
    if (sigaltstack(nullptr, &current) == 0 && !(current.ss_flags & SS_DISABLE)) return true;
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t length = kAlternateStackSize + page;
    void* mapping = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (mapping == MAP_FAILED) return false;
    // The lowest page is the guard: an alternate stack that runs over faults
    // instead of writing into whatever lies below it.
    mprotect(mapping, page, PROT_NONE);
    stack_t stack{};
    stack.ss_sp = static_cast<char*>(mapping) + page;
    stack.ss_size = kAlternateStackSize;
    if (sigaltstack(&stack, nullptr) != 0) {
      const int saved = errno;
      munmap(mapping, length);
      errno = saved;
      return false;
    }
    mapping_ = mapping;
    length_ = length;
    return true;
  }

 private:
  void* mapping_ = nullptr;
  std::size_t length_ = 0;
};

thread_local AlternateStack t_alternateStack;

}  // namespace

bool PrepareThreadForFaults() { return t_alternateStack.Prepare(); }

bool InstallFaultHandlers() {
  PrepareThreadForFaults();
  if (g_installed.exchange(true)) return true;
  struct sigaction action {};
  action.sa_sigaction = OnFaultSignal;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  sigemptyset(&action.sa_mask);
  bool allInstalled = true;
  for (int signalNumber : kFaultSignals) {
    if (sigaction(signalNumber, &action, nullptr) != 0) allInstalled = false;
  }
  std::set_terminate(OnTerminate);
  return allInstalled;
}

}  // namespace Marlowen
