#include "store/report_folder.h"

#include "platform/machine_paths.h"
#include "shell/format_string.h"

namespace Marlowen {

PathBuffer& ReportFolder(PathBuffer& destination) {
  const WideString appData = Utf8ToWide(platform::CommonAppDataFolder());
  // A folder that no path buffer holds is a failure to tell it, as the
  // system's folder query answers for a result beyond its buffer.
  if (appData.empty() || appData.size() > kMaxPathLength) {
    destination.Clear();
    return destination;
  }
  destination = FormatString(u"%s/Marlowen/Crash Reports", appData.c_str());
  return destination;
}

}  // namespace Marlowen
