// Under the dump library's name: the first call faults with a store through
// null, as a broken dump library would inside the capture; later calls go to
// the real library, so the nested capture that follows writes a real dump.
#include <dlfcn.h>

#include <atomic>

#include "platform/dbghelp/minidump_api.h"

namespace {

std::atomic<int> g_calls{0};
int* volatile g_nowhere = nullptr;

}  // namespace

// The fault is the point: sanitizer builds must let it happen.
extern "C" __attribute__((no_sanitize("undefined"))) int MiniDumpWriteDump(MLProcessHandle processHandle, uint32_t processId, int fileDescriptor,
                                 MINIDUMP_TYPE dumpType, const MINIDUMP_EXCEPTION_INFORMATION* exceptionParam,
                                 const void* userStreamParam, const MINIDUMP_CALLBACK_INFORMATION* callbackParam) {
  if (g_calls.fetch_add(1) == 0) *g_nowhere = 1;
  void* real = dlopen(ML_REAL_DUMP_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  if (real == nullptr) return 0;
  auto write = reinterpret_cast<MiniDumpWriteDumpFunction>(dlsym(real, ML_DBGHELP_EXPORT_NAME));
  const int result = write != nullptr ? write(processHandle, processId, fileDescriptor, dumpType, exceptionParam,
                                              userStreamParam, callbackParam)
                                      : 0;
  dlclose(real);
  return result;
}
