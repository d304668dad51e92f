#include "capture/crashed_module_record.h"

#include <cstdint>

#include "store/crashed_module.h"

namespace Marlowen {

bool WriteCrashedModuleRecord(const CrashContext& context) {
  CrashedModuleT record(false);
  const EXCEPTION_RECORD* exception =
      context.exceptionPointers != nullptr ? context.exceptionPointers->ExceptionRecord : nullptr;
  const auto address =
      exception != nullptr ? static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(exception->ExceptionAddress)) : 0;
  record.Collect(context.dumpPath, context.exceptionName, address, context.applicationName, context.time);
  PathBuffer path;
  CrashedModuleT::RecordPath(context.dumpPath, path);
  return record.Save(path);
}

}  // namespace Marlowen
