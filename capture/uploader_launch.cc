#include "capture/uploader_launch.h"

#include "capture/tool_registry_entry.h"
#include "shell/format_string.h"
#include "shell/log_client.h"
#include "shell/process_launcher.h"
#include "shell/registry.h"
#include "store/path_helpers.h"

namespace Marlowen {

void StartUploader(const PathBuffer& dumpPath) {
  const PathBuffer toolPath = ReadRegistryString(kToolRegistryPath, kToolPathValueName);
  if (toolPath.IsEmpty() || !Exists(toolPath)) {
    LogCrashReporting(kLogError, u"Cannot locate Marlowen crash report uploader tool.");
    return;
  }
  PathBuffer reportName;
  dumpPath.BaseName(reportName, false);
  const WideString arguments = FormatString(u"-send %s", reportName.c_str());

  ProcessLauncher launcher(toolPath.ToWide(), arguments);
  if (launcher.Start(false)) {
    LogCrashReporting(kLogInformation, u"Crash report uploader started.");
  } else {
    LogCrashReporting(kLogWarning, u"Cannot start crash report uploader.");
  }
}

}  // namespace Marlowen
