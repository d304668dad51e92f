// CrashReportErrorDialog: shown after a crash of one of the products that
// get a dialog. It apologises and offers to send this one report; with
// reporting switched off it says so and offers nothing.
#pragma once

#include "dialogs/crash_report_base_dialog.h"
#include "shell/wide_string.h"

class CrashReportErrorDialog final : public CrashReportBaseDialog {
 public:
  CrashReportErrorDialog() = default;
  ~CrashReportErrorDialog() override;

  // The name given to "-send", and its part before the first "_".
  WideString reportName;
  WideString productName;
  // True once the upload is over: the next OK ends the dialog.
  bool finished = false;
  // Made by OnInit; nothing reads it again.
  HWND linkControl = nullptr;

  // WindowHandlerBase:
  void OnInit() override;
  // DialogHandlerBase:
  // With "send" chosen, starts the upload and keeps the dialog open; the
  // dialog ends by its own OK once the upload is over. Otherwise it ends and
  // the report stays in the folder.
  bool OnOk() override;
  // CrashReportBaseDialog:
  void OnUploadStarting() override;
  // Restores the choice layout, then clicks the dialog's own OK.
  void OnUploadFinished() override;
  WideString GetReportName() override;
};
