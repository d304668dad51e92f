#include "shell/dialog_modes.h"

#include <cstdio>

#include "dialogs/crash_report_error_dialog.h"
#include "dialogs/crash_report_info_dialog.h"
#include "dialogs/crash_report_resources.h"
#include "dialogs/crash_report_settings_dialog.h"
#include "dialogs/dialog_box.h"
#include "dialogs/dialog_environment.h"
#include "dialogs/dialog_procedure.h"
#include "shell/reporter_main.h"
#include "store/folder_search.h"
#include "store/path_buffer.h"
#include "upload/crash_report_uploader.h"

namespace {

// Showing a window without a display would end the process inside the
// toolkit; say what was not shown instead.
bool CanShowDialogs(const char* what) {
  if (DialogsAvailable()) {
    RegisterCrashReportResources();
    return true;
  }
  std::fprintf(stderr, "MLCrashReporter: no display to show %s on; the reports are left as they are.\n", what);
  return false;
}

}  // namespace

int RunReportMode() {
  {
    Marlowen::CrashReportUploader uploader(nullptr, nullptr);
    Marlowen::PathList reports;
    uploader.FindPendingReports(reports);
    if (reports.empty()) return 0;
  }
  if (!CanShowDialogs("the pending reports dialog")) return 0;

  CrashReportInfoDialog dialog;
  (void)dialog.settings.Load(Marlowen::PathBuffer());
  (void)DialogBoxParamW(GetInstanceHandle(), kInfoDialogTemplate, nullptr, DialogProcedure, HandlerParam(&dialog));
  return 0;
}

int RunSettingsMode() {
  if (!CanShowDialogs("the settings dialog")) return 0;

  CrashReportSettingsDialog dialog;
  (void)dialog.settings.Load(Marlowen::PathBuffer());
  (void)DialogBoxParamW(GetInstanceHandle(), kSettingsDialogTemplate, nullptr, DialogProcedure,
                        HandlerParam(&dialog));
  return 0;
}

int RunSendDialog(const WideString& reportName, const WideString& productName) {
  if (!CanShowDialogs("the error dialog")) return 0;

  CrashReportErrorDialog dialog;
  (void)dialog.settings.Load(Marlowen::PathBuffer());
  dialog.reportName = reportName;
  dialog.productName = productName;
  (void)DialogBoxParamW(GetInstanceHandle(), kErrorDialogTemplate, nullptr, DialogProcedure, HandlerParam(&dialog));
  return 0;
}
