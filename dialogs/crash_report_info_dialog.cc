#include "dialogs/crash_report_info_dialog.h"

#include "dialogs/crash_report_resources.h"
#include "dialogs/message_box.h"
#include "dialogs/window_api.h"
#include "shell/format_string.h"
#include "shell/translator.h"

void CrashReportInfoDialog::OnInit() {
  CenterOnDesktop();
  UpdateReportCount();
  linkControl = CreateLinkControl(kIdLinkPlaceholder, u"<A ID=\"idSettingsLink\">Settings</A>");
}

void CrashReportInfoDialog::UpdateReportCount() {
  // Asking first preselects "do not report", not sending. The other buttons
  // keep their checks.
  const int choice = settings.sendReports && !settings.askBeforeSending ? kIdSend : kIdDoNotSend;
  SendDlgItemMessageW(handle, choice, BM_SETCHECK, BST_CHECKED, 0);
  const int count = CountPendingReports();
  finished = false;
  const WideString text = FormatString(
      Translate(u"There are %i error report(s) on this computer that have not been sent to Marlowen."), count);
  SetWindowTextW(GetDlgItem(handle, kIdReportCount), text.c_str());
  if (count == 0) {
    DisableItems(3, kIdSend, kIdDoNotSend, kIdDeleteChoice);
    finished = true;
  }
}

bool CrashReportInfoDialog::OnOk() {
  if (finished) return true;
  if (SendDlgItemMessageW(handle, kIdDeleteChoice, BM_GETCHECK, 0, 0) == BST_CHECKED) {
    const int answer = MessageBoxW(handle, Translate(u"Are you sure you want to delete these error reports?"),
                                   Translate(u"Marlowen Error Reporter"), MB_YESNO | MB_ICONQUESTION);
    // Only No keeps the reports; any other answer deletes them.
    if (answer == IDNO) return false;
    DeleteAllReports();
    return true;
  }
  if (SendDlgItemMessageW(handle, kIdSend, BM_GETCHECK, 0, 0) == BST_CHECKED) {
    StartUpload();
    return false;
  }
  return true;
}

void CrashReportInfoDialog::OnUploadStarting() {
  ShowItems(2, kIdProgress, kIdStatus);
  HideItems(3, kIdSend, kIdDoNotSend, kIdDeleteChoice);
  EnableWindow(GetDlgItem(handle, IDOK), FALSE);
}

void CrashReportInfoDialog::OnUploadFinished() {
  HideItems(2, kIdProgress, kIdStatus);
  ShowItems(3, kIdSend, kIdDoNotSend, kIdDeleteChoice);
  EnableWindow(GetDlgItem(handle, IDOK), TRUE);
  UpdateReportCount();
  finished = true;
  // The dialog ends by its own OK, also with reports left after a failure.
  SendMessageW(handle, WM_COMMAND, IDOK, reinterpret_cast<LPARAM>(GetDlgItem(handle, IDOK)));
}
