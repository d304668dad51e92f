#include "capture/top_level_filter.h"

#include <atomic>
#include <iterator>

#include "capture/crash_report_writer.h"
#include "capture/unhandled_exception_filter.h"
#include "capture/uploader_launch.h"
#include "platform/system_time.h"
#include "shell/format_string.h"
#include "shell/log_client.h"
#include "store/report_folder.h"

namespace Marlowen {
namespace {

// Blank, colon, hyphen, underscore: what the formatted time loses.
constexpr char16_t kTimeSeparators[] = u" :-_";

struct ExceptionNameEntry {
  std::uint32_t code;
  const char16_t* name;
};

constexpr ExceptionNameEntry kExceptionNames[] = {
    {kExceptionDatatypeMisalignment, u"Datatype Misalignment"},
    {kExceptionBreakpoint, u"Breakpoint"},
    {kExceptionSingleStep, u"Single Step"},
    {kExceptionAccessViolation, u"Access Violation"},
    {kExceptionInPageError, u"In Page Error"},
    {kExceptionIllegalInstruction, u"Illegal Instruction"},
    {kExceptionNoncontinuable, u"Noncontinuable Exception"},
    {kExceptionInvalidDisposition, u"Invalid Disposition"},
    {kExceptionArrayBoundsExceeded, u"Array Bounds Exceeded"},
    {kExceptionFltDenormalOperand, u"Flt Denormal Operand"},
    {kExceptionFltDivideByZero, u"Flt Divide by Zero"},
    {kExceptionFltInexactResult, u"Flt Inexact Result"},
    {kExceptionFltInvalidOperation, u"Flt Invalid Operation"},
    {kExceptionFltOverflow, u"Flt Overflow"},
    {kExceptionFltStackCheck, u"Flt Stack Check"},
    {kExceptionFltUnderflow, u"Flt Underflow"},
    {kExceptionIntDivideByZero, u"Int Divide by Zero"},
    {kExceptionIntOverflow, u"Int Overflow"},
    {kExceptionPrivInstruction, u"Priv Instruction"},
    {kExceptionStackOverflow, u"Stack Overflow"},
};

// Written once when a product installs the capture, read by the filter
// without allocating. The length is published last, so a reader sees either
// the old name or the whole new one.
struct FilterName {
  char16_t text[kMaxFilterApplicationName + 1] = {};
  constexpr FilterName() {
    for (std::size_t i = 0; ApplicationName[i] != 0; ++i) text[i] = ApplicationName[i];
  }
};
constinit FilterName g_filterName;
char16_t* const g_applicationName = g_filterName.text;
std::atomic<std::size_t> g_applicationNameLength{std::size(ApplicationName) - 1};
std::atomic<std::int32_t> g_disposition{kDispositionExit};

}  // namespace

void SetTopLevelFilterApplication(WideStringView applicationName, std::int32_t disposition) {
  const std::size_t length = std::min(applicationName.size(), kMaxFilterApplicationName);
  g_applicationNameLength.store(0);
  applicationName.copy(g_applicationName, length);
  g_applicationName[length] = 0;
  g_applicationNameLength.store(length);
  g_disposition.store(disposition);
}

std::int32_t TopLevelFilter(EXCEPTION_POINTERS* exceptionPointers) {
  return HandleTopLevelException(g_applicationName, kCrashExitCode, g_disposition.load(), exceptionPointers);
}

std::int32_t NestedTopLevelFilter(EXCEPTION_POINTERS* exceptionPointers) {
  return HandleTopLevelException(kNestedApplicationName, kCrashExitCode, kDispositionExit, exceptionPointers);
}

std::int32_t HandleTopLevelException(const char16_t* applicationName, std::uint32_t exitCode,
                                     std::int32_t disposition, EXCEPTION_POINTERS* exceptionPointers) {
  const EXCEPTION_RECORD* record = exceptionPointers ? exceptionPointers->ExceptionRecord : nullptr;
  if (record != nullptr && record->ExceptionCode == kExceptionStackOverflow) {
    LogCrashReporting(kLogError, u"A top-level exception has occurred. The process will be restarted (Stack Overflow).");
    ExitProcess(exitCode);
  }

  // Before anything that could fault: from here on a fault is a failed capture.
  SetUnhandledExceptionFilter(NestedTopLevelFilter);

  CrashContext context;
  platform::SystemTime now = platform::GetSystemTimeUtc();
  SystemTimeToFileTime(now, context.time);
  context.dumpPath = MakeReportFileName(WideString(WideView(applicationName)), context.time);
  context.applicationName = WideView(applicationName);
  context.exceptionName = ExceptionName(exceptionPointers);
  context.exitCode = exitCode;
  context.threadId = GetCurrentThreadId();
  context.exceptionPointers = exceptionPointers;

  LogCrashReporting(kLogError, FormatString(u"A top-level exception has occurred. The process will be restarted (%s).",
                                            context.exceptionName.c_str()));

  try {
    WriteCrashReport(context);
    StartUploader(context.dumpPath);
  } catch (...) {
    LogCrashReporting(kLogError, u"An exception occurred during crash report writing.");
  }

  if (disposition == kDispositionExit) {
    LogCrashReporting(kLogWarning, FormatString(u"Terminating process for '%s' after crash report writing.",
                                                context.applicationName.c_str()));
    ExitProcess(exitCode);
  }
  return disposition == kDispositionReturnTwo ? kDispositionReturnTwo : 1;
}

WideString MakeReportFileName(const WideString& applicationName, const FILETIME& time) {
  platform::SystemTime utc{};
  FileTimeToSystemTime(time, utc);
  const WideString stamp = FormatString(u"%d-%02d-%02d %02d:%02d:%02d", utc.year, utc.month, utc.day, utc.hour,
                                        utc.minute, utc.second);
  const WideString digits = RemoveCharacters(stamp, kTimeSeparators, true);
  PathBuffer folder;
  ReportFolder(folder);
  return FormatString(u"%s/%s_%s_%i_%i.dmp", folder.c_str(), applicationName.c_str(), digits.c_str(),
                      GetCurrentProcessId(), GetCurrentThreadId());
}

WideString RemoveCharacters(const WideString& text, const WideString& set, bool dropListed) {
  WideString result;
  for (char16_t unit : text) {
    const bool listed = set.find(unit) != WideString::npos;
    if (listed != dropListed) result.push_back(unit);
  }
  return result;
}

WideString ExceptionName(const EXCEPTION_POINTERS* exceptionPointers) {
  if (exceptionPointers != nullptr && exceptionPointers->ExceptionRecord != nullptr) {
    const std::uint32_t code = exceptionPointers->ExceptionRecord->ExceptionCode;
    for (const ExceptionNameEntry& entry : kExceptionNames) {
      if (entry.code == code) return entry.name;
    }
  }
  return u"Exception Unknown";
}

}  // namespace Marlowen
