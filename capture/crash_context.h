// The facts of one crash on their way through the capture: filled by
// HandleTopLevelException, read by WriteCrashReport, WriteCrashedModuleRecord
// and StartUploader. It lives on the failing thread's stack for the length of
// the handling.
#pragma once

#include <cstdint>

#include "capture/exception_record.h"
#include "shell/wide_string.h"
#include "store/crash_report_settings.h"
#include "store/file_time.h"
#include "store/path_buffer.h"

namespace Marlowen {

struct CrashContext {
  // Default-constructed and never loaded: the dump level is 3 in every crash.
  CrashReportSettingsT settings;
  FILETIME time;  // UTC
  PathBuffer dumpPath;
  WideString applicationName;
  WideString exceptionName;
  std::uint32_t exitCode = 0;
  std::uint32_t threadId = 0;  // kernel id of the failing thread
  EXCEPTION_POINTERS* exceptionPointers = nullptr;  // borrowed from the fault
};

}  // namespace Marlowen
