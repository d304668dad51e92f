#include "dialogs/crash_report_settings_dialog.h"

#include "dialogs/crash_report_resources.h"
#include "dialogs/message_box.h"
#include "dialogs/shell_execute.h"
#include "dialogs/window_api.h"
#include "shell/format_string.h"
#include "shell/translator.h"
#include "store/path_buffer.h"
#include "store/report_folder.h"

namespace {

constexpr char16_t kCaption[] = u"Marlowen Error Reporter";
constexpr std::size_t kCustomerNumberLength = 11;
constexpr std::size_t kCustomerNumberHyphen = 5;

bool IsDecimalDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

}  // namespace

void CrashReportSettingsDialog::OnInit() {
  CenterOnDesktop();
  int choice = kIdSend;
  if (!settings.sendReports) {
    choice = kIdDoNotSend;
  } else if (settings.askBeforeSending) {
    choice = kIdAskFirst;
  }
  SendDlgItemMessageW(handle, choice, BM_SETCHECK, BST_CHECKED, 0);
  SetWindowTextW(GetDlgItem(handle, kIdSmaNumber), settings.smaNumber.c_str());
  UpdateReportCount();
  const WideString address = KnowledgeBaseAddress();
  const WideString markup = u"<A ID=\"idKbLink\" HREF=\"" + address + u"\">" + address + u"</A>";
  linkControl = CreateLinkControl(kIdKbLinkPlaceholder, markup.c_str());
}

void CrashReportSettingsDialog::UpdateReportCount() {
  const int count = CountPendingReports();
  const WideString text = FormatString(Translate(u"There are currently %i error reports on this machine"), count);
  SetWindowTextW(GetDlgItem(handle, kIdStatus), text.c_str());
  // View Files goes with the others: an empty folder has nothing to show.
  if (count != 0) {
    EnableItems(3, kIdSendAll, kIdViewFiles, kIdDeleteReports);
  } else {
    DisableItems(3, kIdSendAll, kIdViewFiles, kIdDeleteReports);
  }
}

INT_PTR CrashReportSettingsDialog::OnCommand(WORD notifyCode, WORD controlId, HWND control) {
  if (notifyCode == BN_CLICKED) {
    switch (controlId) {
      case kIdSendAll:
        // What is on screen is not saved first: the upload goes by the file.
        StartUpload();
        return 1;
      case kIdViewFiles: {
        Marlowen::PathBuffer folder;
        Marlowen::ReportFolder(folder);
        ShellExecuteW(handle, nullptr, folder.c_str(), nullptr, nullptr, SW_SHOW);
        // The user may have removed files while the folder was open.
        UpdateReportCount();
        return 1;
      }
      case kIdDeleteReports: {
        const int answer = MessageBoxW(handle, Translate(u"Are you sure you want to delete these error reports?"),
                                       Translate(kCaption), MB_YESNO | MB_ICONQUESTION);
        // Here only Yes deletes.
        if (answer == IDYES) {
          DeleteAllReports();
          UpdateReportCount();
        }
        return 1;
      }
      default:
        break;
    }
  }
  return CrashReportBaseDialog::OnCommand(notifyCode, controlId, control);
}

bool CrashReportSettingsDialog::OnOk() {
  // The choice goes into settings before any check, and stays there if the
  // dialog is kept open.
  if (SendDlgItemMessageW(handle, kIdSend, BM_GETCHECK, 0, 0) == BST_CHECKED) {
    settings.sendReports = true;
    settings.askBeforeSending = false;
  } else if (SendDlgItemMessageW(handle, kIdAskFirst, BM_GETCHECK, 0, 0) == BST_CHECKED) {
    settings.sendReports = true;
    settings.askBeforeSending = true;
  } else {
    settings.sendReports = false;
    settings.askBeforeSending = false;
  }
  settings.smaNumber = GetTrimmedText();
  if (!settings.smaNumber.empty() && !IsValidCustomerNumber(settings.smaNumber)) {
    MessageBoxW(handle, Translate(u"The specified SMA number has invalid format"), Translate(kCaption),
                MB_ICONWARNING);
    return false;
  }
  if (!settings.Save(Marlowen::PathBuffer())) {
    MessageBoxW(handle, Translate(u"Cannot save error report settings."), Translate(kCaption), MB_ICONWARNING);
    return false;
  }
  return true;
}

void CrashReportSettingsDialog::OnUploadStarting() {
  ShowWindow(GetDlgItem(handle, kIdProgress), SW_SHOW);
  HideItems(3, kIdSendAll, kIdViewFiles, kIdDeleteReports);
}

void CrashReportSettingsDialog::OnUploadFinished() {
  ShowWindow(GetDlgItem(handle, kIdProgress), SW_HIDE);
  ShowItems(3, kIdSendAll, kIdViewFiles, kIdDeleteReports);
  UpdateReportCount();
}

bool CrashReportSettingsDialog::IsValidCustomerNumber(const WideString& number) {
  if (number.size() != kCustomerNumberLength) return false;
  if (number[kCustomerNumberHyphen] != u'-') return false;
  for (std::size_t i = 0; i < kCustomerNumberHyphen; ++i) {
    if (!IsDecimalDigit(number[i])) return false;
  }
  for (std::size_t i = kCustomerNumberHyphen + 1; i < number.size(); ++i) {
    if (!IsDecimalDigit(number[i])) return false;
  }
  return true;
}
