// Starts the reporter tool on a report just written, and forgets about it.
#pragma once

#include "store/path_buffer.h"

namespace Marlowen {

// Runs the program that the tool's registry entry names (its default value,
// no other place is tried) with "-send <report name>", neither quoted: the
// tool takes everything behind "-send " as the one name. Failures are logged;
// nothing waits for the tool.
void StartUploader(const PathBuffer& dumpPath);

}  // namespace Marlowen
