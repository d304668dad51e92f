// CrashReportInfoDialog: tells of the reports still waiting on this computer
// and offers to send, leave or delete all of them at once.
#pragma once

#include "dialogs/crash_report_base_dialog.h"

class CrashReportInfoDialog final : public CrashReportBaseDialog {
 public:
  CrashReportInfoDialog() = default;

  // True when OK is to end the dialog without acting: nothing is left to do,
  // or the upload is over.
  bool finished = false;
  // Made by OnInit; nothing reads it again.
  HWND linkControl = nullptr;

  // WindowHandlerBase:
  void OnInit() override;
  // DialogHandlerBase:
  // Delete asks first (anything but No deletes and ends); send starts the
  // upload and keeps the dialog open until it clicks its own OK; "do not
  // report" ends with the reports left as they are.
  bool OnOk() override;
  // CrashReportBaseDialog:
  void OnUploadStarting() override;
  void OnUploadFinished() override;

  // Preselects by the settings and shows the number of pending reports; with
  // none, the choices are disabled and OK ends the dialog.
  void UpdateReportCount();
};
