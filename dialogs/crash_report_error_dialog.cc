#include "dialogs/crash_report_error_dialog.h"

#include "dialogs/crash_report_resources.h"
#include "dialogs/window_api.h"
#include "shell/format_string.h"
#include "shell/translator.h"

CrashReportErrorDialog::~CrashReportErrorDialog() = default;

void CrashReportErrorDialog::OnInit() {
  CenterOnDesktop();
  const WideString heading = FormatString(
      Translate(u"%s has terminated unexpectedly. We are VERY SORRY for the inconvenience this may cause."),
      productName.c_str());
  SetWindowTextW(GetDlgItem(handle, kIdErrorHeading), heading.c_str());
  if (settings.sendReports) {
    ShowItems(1, kIdPleaseHelp);
    HideItems(1, kIdDisabledNote);
    SendDlgItemMessageW(handle, kIdSend, BM_SETCHECK, BST_CHECKED, 0);
  } else {
    // Nothing checked: OK then simply ends the dialog.
    HideItems(1, kIdPleaseHelp);
    ShowItems(1, kIdDisabledNote);
    HideItems(2, kIdSend, kIdDoNotSend);
  }
  finished = false;
  linkControl = CreateLinkControl(kIdLinkPlaceholder, u"<A ID=\"idSettingsLink\">Settings</A>");
}

bool CrashReportErrorDialog::OnOk() {
  if (finished) return true;
  if (SendDlgItemMessageW(handle, kIdSend, BM_GETCHECK, 0, 0) == BST_CHECKED) {
    StartUpload();
    return false;
  }
  return true;
}

void CrashReportErrorDialog::OnUploadStarting() {
  ShowItems(2, kIdProgress, kIdStatus);
  HideItems(2, kIdSend, kIdDoNotSend);
  EnableWindow(GetDlgItem(handle, IDOK), FALSE);
}

void CrashReportErrorDialog::OnUploadFinished() {
  HideItems(2, kIdProgress, kIdStatus);
  ShowItems(2, kIdSend, kIdDoNotSend);
  EnableWindow(GetDlgItem(handle, IDOK), TRUE);
  finished = true;
  // The dialog ends by its own OK, whatever the upload gave.
  SendMessageW(handle, WM_COMMAND, IDOK, reinterpret_cast<LPARAM>(GetDlgItem(handle, IDOK)));
}

WideString CrashReportErrorDialog::GetReportName() { return reportName; }
