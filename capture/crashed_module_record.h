// The crash record of a capture: the ".dat" file beside the minidump.
#pragma once

#include "capture/crash_context.h"

namespace Marlowen {

// Fills a CrashedModuleT with the context's facts (report name, exception
// text and address, application name, time) and the process's own, and saves
// it as "<dump folder>/<report name>.dat". True if the file is on disk;
// failures are logged by the record's Save.
bool WriteCrashedModuleRecord(const CrashContext& context);

}  // namespace Marlowen
