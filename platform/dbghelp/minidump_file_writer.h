// Encodes a ProcessSnapshot as one minidump file: header, directory and
// the streams that the dump type asks for. Knows nothing of /proc.
#pragma once

#include <sys/types.h>

#include "platform/dbghelp/process_snapshot.h"

namespace mldbghelp {

// Writes at fd from offset base; leaves the file offset at the dump's end.
// The header, with its signature, is written last, so a dump cut off
// anywhere never looks whole. Returns 0 or the errno of the failure.
// writerStack is memory of the writer itself, left out of a full dump.
[[nodiscard]] int WriteMinidump(const ProcessSnapshot& snapshot, const MemoryRange& writerStack, int fd,
                                off_t base);

}  // namespace mldbghelp
