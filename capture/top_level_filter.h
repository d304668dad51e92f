// The top-level exception filter: names the crash, has its minidump and
// record written, starts the reporter tool and ends the process. It holds no
// policy: no settings are read and the report is written in every case.
//
// Re-entry is guarded by nothing but the filter exchange: the first step of a
// capture registers NestedTopLevelFilter, so a fault during the capture (or a
// second thread's fault) is reported under kNestedApplicationName, a name the
// tool recognises and never sends.
//
// Not free of allocation: its strings come from the heap, and a log call
// takes about 10 KB of stack. A fault there goes to the nested filter.
#pragma once

#include "shell/application_name.h"

#include <cstdint>

#include "capture/crash_context.h"
#include "capture/exception_record.h"
#include "shell/wide_string.h"

namespace Marlowen {

// The exit code of both filters: -2, so the exit status is 254.
inline constexpr std::uint32_t kCrashExitCode = 0xFFFFFFFEu;
inline constexpr char16_t kNestedApplicationName[] = u"Marlowen Crash Reporter";

// Dispositions of HandleTopLevelException.
inline constexpr std::int32_t kDispositionExit = 0;
inline constexpr std::int32_t kDispositionReturnTwo = 2;

// The name and disposition that TopLevelFilter passes on. The name is kept in
// a fixed buffer, so the filter finds it without allocating; a longer name is
// cut at kMaxFilterApplicationName units.
inline constexpr std::size_t kMaxFilterApplicationName = 255;
void SetTopLevelFilterApplication(WideStringView applicationName, std::int32_t disposition);

// HandleTopLevelException with the registered name (the tool's own
// ApplicationName until a product installs the capture with its name), kCrashExitCode and the registered disposition (0 unless set).
std::int32_t TopLevelFilter(EXCEPTION_POINTERS* exceptionPointers);
// HandleTopLevelException with kNestedApplicationName, kCrashExitCode and 0.
std::int32_t NestedTopLevelFilter(EXCEPTION_POINTERS* exceptionPointers);

// The capture. A stack overflow only logs and ends the process with
// exitCode. Otherwise the report is written and the tool started; then
// disposition 0 ends the process with exitCode, 2 returns 2 and any other
// value returns 1.
std::int32_t HandleTopLevelException(const char16_t* applicationName, std::uint32_t exitCode,
                                     std::int32_t disposition, EXCEPTION_POINTERS* exceptionPointers);

// "<report folder>/<application name>_<14 UTC digits>_<process id>_<thread
// id>.dmp". The application name goes in as it is; with the report folder
// unknown the path starts at the root "/".
WideString MakeReportFileName(const WideString& applicationName, const FILETIME& time);

// text without (dropListed) or with only (!dropListed) the characters of set,
// in their order.
WideString RemoveCharacters(const WideString& text, const WideString& set, bool dropListed);

// The name of the exception code; "Exception Unknown" for codes without one
// and for null pointers.
WideString ExceptionName(const EXCEPTION_POINTERS* exceptionPointers);

}  // namespace Marlowen
