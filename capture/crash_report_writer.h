// Puts the two files of a report on disk from inside the failing process:
// the minidump through the dump library, loaded only now, then the crash
// record. Reports no result: each failure is one line in the log, and the
// caller goes on to start the tool whatever happened here.
#pragma once

#include <cstdint>

#include "capture/crash_context.h"
#include "platform/dbghelp/minidump_api.h"

namespace Marlowen {

// The dump library's file name, looked for in the folder that the tool's
// registry entry names, else left to the loader's search.
inline constexpr char16_t kDumpLibraryName[] = u"libmldbghelp.so";

// 1 gives 0x107, 2 gives 0x105, any other level 0x104.
MINIDUMP_TYPE DumpTypeForLevel(std::uint32_t dumpLevel);

// Keeps every thread and module: touches nothing and returns 1. Runs in the
// dump library's helper, so it must stay free of locks and allocation.
int AlwaysIncludeCallback(void* callbackParam, const MINIDUMP_CALLBACK_INPUT* callbackInput,
                          MINIDUMP_CALLBACK_OUTPUT* callbackOutput);

// "<dump path>" as a minidump of the whole process with the context's thread
// and fault, then the ".dat" record beside it (the record also when the dump
// itself failed). May throw what allocation throws.
void WriteCrashReport(CrashContext& context);

}  // namespace Marlowen
