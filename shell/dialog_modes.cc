#include "shell/dialog_modes.h"

#include <cstdio>

#include "shell/wide_string.h"

namespace {

int TellNoDialogs(const char* what) {
  std::fprintf(stderr, "MLCrashReporter: this build has no dialogs; %s is not shown.\n", what);
  return 0;
}

}  // namespace

int RunReportMode() { return TellNoDialogs("the pending reports dialog"); }

int RunSettingsMode() { return TellNoDialogs("the settings dialog"); }

int RunSendDialog(const WideString& reportName, const WideString& productName) {
  std::fprintf(stderr, "MLCrashReporter: report %s of %s stays pending.\n",
               WideToUtf8(reportName).c_str(), WideToUtf8(productName).c_str());
  return TellNoDialogs("the error dialog");
}
