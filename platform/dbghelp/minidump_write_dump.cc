// The library's one export. May run inside a signal handler on an
// alternate stack: it validates, gathers the caller's inputs and hands the
// work to a helper (dump_helper.h).
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/dbghelp/dump_helper.h"
#include "platform/dbghelp/minidump_api.h"

using mldbghelp::CaptureRequest;

extern "C" __attribute__((visibility("default"))) int MiniDumpWriteDump(
    MLProcessHandle processHandle, uint32_t processId, int fileDescriptor, MINIDUMP_TYPE dumpType,
    const MINIDUMP_EXCEPTION_INFORMATION* exceptionParam, const void* userStreamParam,
    const MINIDUMP_CALLBACK_INFORMATION* callbackParam) {
  const pid_t pid = static_cast<pid_t>(syscall(SYS_getpid));
  if (processHandle != ML_CURRENT_PROCESS || processId != static_cast<uint32_t>(pid) ||
      userStreamParam != nullptr || fileDescriptor < 0) {
    errno = EINVAL;
    return 0;
  }
  const off_t base = lseek(fileDescriptor, 0, SEEK_CUR);
  if (base < 0) return 0;  // errno from lseek

  CaptureRequest request{};
  request.pid = static_cast<uint32_t>(pid);
  request.dumpType = dumpType;
  request.callback = callbackParam;
  request.useTracer = true;
  ucontext_t here;  // the caller's registers, when no signal brought any
  const ML_EXCEPTION_POINTERS* pointers = exceptionParam ? exceptionParam->ExceptionPointers : nullptr;
  if (pointers && pointers->SignalContext) {
    request.exceptionThreadId = exceptionParam->ThreadId;
    request.context = pointers->SignalContext;
    if (pointers->SignalInfo) {
      request.hasException = true;
      std::memcpy(&request.signalInfo, pointers->SignalInfo, sizeof(siginfo_t));
    }
  } else if (exceptionParam) {
    errno = EINVAL;
    return 0;
  } else {
    getcontext(&here);
    request.exceptionThreadId = static_cast<uint32_t>(syscall(SYS_gettid));
    request.context = &here;
  }

  const int saved = errno;
  int error = mldbghelp::CaptureWithHelper(request, fileDescriptor, base);
  if (error != 0) {
    errno = error;
    return 0;
  }
  errno = saved;
  return 1;
}
