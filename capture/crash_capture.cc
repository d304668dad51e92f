#include "capture/crash_capture.h"

#include "capture/fault_handlers.h"
#include "capture/top_level_filter.h"
#include "capture/unhandled_exception_filter.h"
#include "shell/wide_string.h"

namespace Marlowen {

bool InstallCrashCapture(const char16_t* applicationName, std::int32_t disposition) {
  SetTopLevelFilterApplication(WideView(applicationName), disposition);
  SetUnhandledExceptionFilter(TopLevelFilter);
  return InstallFaultHandlers();
}

bool PrepareThreadForCrashCapture() { return PrepareThreadForFaults(); }

}  // namespace Marlowen
