// CrashReportSettingsDialog: the machine's reporting choice (send, ask
// first, do not send), the customer number, and buttons that send, show or
// delete the reports on the machine. OK saves; Cancel doesn't.
#pragma once

#include "dialogs/crash_report_base_dialog.h"
#include "shell/wide_string.h"

class CrashReportSettingsDialog final : public CrashReportBaseDialog {
 public:
  CrashReportSettingsDialog() = default;

  // Made by OnInit; nothing reads it again.
  HWND linkControl = nullptr;

  // WindowHandlerBase:
  void OnInit() override;
  // Send, View Files and Delete Reports; the rest goes to the OK and Cancel
  // rule.
  INT_PTR OnCommand(WORD notifyCode, WORD controlId, HWND control) override;
  // DialogHandlerBase:
  // Takes the choice and the trimmed number into settings, refuses a number
  // of the wrong form, and saves. A refusal or a failed save shows a warning
  // and keeps the dialog open.
  bool OnOk() override;
  // CrashReportBaseDialog:
  void OnUploadStarting() override;
  // Back to the buttons with the count refreshed; the dialog stays open.
  void OnUploadFinished() override;

  // Shows the number of pending reports; the three report buttons are
  // usable only when there is at least one.
  void UpdateReportCount();
  // Five digits, "-", five digits.
  static bool IsValidCustomerNumber(const WideString& number);
};
