// The machine-wide report folder: <all-users application data>/Marlowen/
// Crash Reports, that is $MARLOWEN_ROOT/var/lib/Marlowen/Crash Reports.
// Everything that touches the report folder takes it from here.
#pragma once

#include "store/path_buffer.h"

namespace Marlowen {

// Fills destination with the folder, which is not created here; empty when
// the application data folder cannot be told.
PathBuffer& ReportFolder(PathBuffer& destination);

}  // namespace Marlowen
