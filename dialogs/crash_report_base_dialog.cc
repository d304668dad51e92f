#include "dialogs/crash_report_base_dialog.h"

#include <cstdarg>
#include <iterator>
#include <vector>

#include "dialogs/center_on_desktop.h"
#include "dialogs/crash_report_resources.h"
#include "dialogs/crash_report_settings_dialog.h"
#include "dialogs/dialog_box.h"
#include "dialogs/dialog_procedure.h"
#include "dialogs/message_box.h"
#include "dialogs/shell_execute.h"
#include "dialogs/window_api.h"
#include "shell/format_string.h"
#include "shell/string_helpers.h"
#include "shell/translator.h"
#include "store/folder_search.h"
#include "store/path_buffer.h"
#include "store/path_helpers.h"
#include "store/report_folder.h"
#include "upload/crash_report_uploader.h"

#ifndef ML_KB_HOST
#error "ML_KB_HOST names the host of the knowledge-base pages; the build sets it"
#endif

namespace {

constexpr char16_t kKbPathAndQuery[] = u"/kb/article.aspx?id=10232";
constexpr char16_t kSettingsLinkId[] = u"idSettingsLink";
constexpr char16_t kKbLinkId[] = u"idKbLink";
// Style of a link control: WS_CHILD | WS_VISIBLE | WS_TABSTOP.
constexpr DWORD kLinkStyle = 0x50010000u;

const char16_t* const kStatusTexts[] = {
    u"An error occurred. Check Marlowen log for details.",
    u"Creating zip package.",
    u"Contacting upload server.",
    u"Preparing upload XML.",
    u"Opening HTTP connection.",
    u"Preparing headers.",
    u"Sending data...",
    u"Upload successful.",
};
constexpr char16_t kUnknownStatus[] = u"Unknown status received.";

constexpr char16_t kCaption[] = u"Marlowen Error Reporter";
constexpr char16_t kAllSent[] = u"Error reports successfully sent to Marlowen.";
constexpr char16_t kSomeFailed[] =
    u"One or more error reports could not be sent to Marlowen.\nPlease see Marlowen log for details.";

// The report files that "delete all" removes, in this order.
const char16_t* const kReportPatterns[] = {u"*.dmp", u"*.dat", u"*.zip"};

// Calls action(control) for each of count ids of a va_list.
template <typename Action>
void ForEachItem(HWND dialog, int count, std::va_list ids, Action action) {
  for (int i = 0; i < count; ++i) action(GetDlgItem(dialog, va_arg(ids, int)));
}

}  // namespace

const char16_t* UploadStatusText(std::uint32_t status) {
  if (status < std::size(kStatusTexts)) return Translate(kStatusTexts[status]);
  return Translate(kUnknownStatus);
}

WideString KnowledgeBaseAddress() { return u"http://" + Utf8ToWide(ML_KB_HOST) + kKbPathAndQuery; }

void UploadProgressCallback(const WideString& reportId, std::uint32_t status, void* callbackData) {
  auto* context = static_cast<UploadProgressContext*>(callbackData);
  ++context->position;
  SendMessageW(context->progressControl, PBM_SETPOS, static_cast<WPARAM>(context->position), 0);
  WideString line = FormatString(Translate(u"Report id: %s."), reportId.c_str());
  line += UploadStatusText(status);
  SetWindowTextW(context->statusControl, line.c_str());
}

CrashReportBaseDialog::~CrashReportBaseDialog() = default;

INT_PTR CrashReportBaseDialog::HandleMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_TIMER && wParam == kUploadTimerId) {
    KillTimer(handle, kUploadTimerId);
    RunUpload();
    return 1;
  }
  return WindowHandlerBase::HandleMessage(window, message, wParam, lParam);
}

INT_PTR CrashReportBaseDialog::OnNotify(WORD wParamHigh, WORD wParamLow, NMHDR* header) {
  if (header->code != NM_CLICK && header->code != NM_RETURN) return 0;
  const LITEM& item = reinterpret_cast<NMLINK*>(header)->item;
  const WideStringView id(item.szID);
  if (id == kSettingsLinkId) {
    CrashReportSettingsDialog dialog;
    (void)dialog.settings.Load(Marlowen::PathBuffer());
    // What is saved there reaches the file only; this dialog goes on with
    // the settings it read at its start.
    DialogBoxParamW(nullptr, kSettingsDialogTemplate, handle, DialogProcedure, HandlerParam(&dialog));
  } else if (id == kKbLinkId) {
    OnKbLink(item.szUrl);
  } else {
    MessageBoxW(handle, u"Unknown id", u"Sys Link Control", MB_OK);
  }
  return 1;
}

void CrashReportBaseDialog::OnKbLink(const char16_t* address) {
  Marlowen::PathBuffer folder;
  Marlowen::ReportFolder(folder);
  const Marlowen::PathBuffer shortcut(folder.ToWide() + Marlowen::kPathSeparator + kKbShortcutFileName);
  if (!Marlowen::Exists(shortcut)) {
    const WideString text = u"[InternetShortcut]\r\nURL=" + KnowledgeBaseAddress();
    // Without the shortcut the link is not opened either.
    if (!Marlowen::WriteUtf8Text(shortcut, text, true)) return;
  }
  ShellExecuteW(handle, u"open", address, u"", u"/", SW_SHOWNORMAL);
}

void CrashReportBaseDialog::OnUploadStarting() {}

void CrashReportBaseDialog::OnUploadFinished() {}

WideString CrashReportBaseDialog::GetReportName() { return WideString(); }

int CrashReportBaseDialog::CountPendingReports() {
  Marlowen::CrashReportUploader uploader(nullptr, nullptr);
  Marlowen::PathList reports;
  uploader.FindPendingReports(reports);
  return static_cast<int>(reports.size());
}

void CrashReportBaseDialog::DeleteAllReports() {
  Marlowen::PathBuffer folder;
  Marlowen::ReportFolder(folder);
  // An unknown folder must not turn into a search of the working folder.
  if (folder.IsEmpty()) return;
  for (const char16_t* pattern : kReportPatterns) {
    Marlowen::PathList files;
    Marlowen::FindFiles(files, folder, pattern, false);
    for (const Marlowen::PathBuffer& file : files) (void)Marlowen::Delete(file);
  }
}

void CrashReportBaseDialog::StartUpload() {
  OnUploadStarting();
  SetTimer(handle, kUploadTimerId, kUploadTimerDelay, nullptr);
}

void CrashReportBaseDialog::RunUpload() {
  const WideString reportName = GetReportName();
  int count = 1;
  if (reportName.empty()) {
    count = CountPendingReports();
    if (count == 0) return;
  }

  UploadProgressContext context;
  context.progressControl = GetDlgItem(handle, kIdProgress);
  context.statusControl = GetDlgItem(handle, kIdStatus);
  context.position = 0;

  const int maximum = count * kStepsPerReport;
  if (maximum != -1) SendMessageW(context.progressControl, PBM_SETRANGE32, 0, maximum);
  SendMessageW(context.progressControl, PBM_SETPOS, 0, 0);

  Marlowen::CrashReportUploader uploader(&UploadProgressCallback, &context);
  const bool sent = reportName.empty() ? uploader.SendAllReports() : uploader.SendReport(reportName);
  // Any one report that went up counts as success, as SendAllReports says.
  if (sent) {
    MessageBoxW(handle, Translate(kAllSent), Translate(kCaption), MB_ICONINFORMATION);
  } else {
    MessageBoxW(handle, Translate(kSomeFailed), Translate(kCaption), MB_ICONWARNING);
  }
  OnUploadFinished();
}

void CrashReportBaseDialog::CenterOnDesktop() { ::CenterOnDesktop(handle); }

HWND CrashReportBaseDialog::CreateLinkControl(int placeholderId, const char16_t* markup) {
  HWND placeholder = GetDlgItem(handle, placeholderId);
  RECT rect{};
  GetWindowRect(placeholder, &rect);
  MapWindowPoints(nullptr, handle, &rect, 2);
  RECT client{};
  GetClientRect(placeholder, &client);
  // The placeholder stays where it is, under the link.
  return CreateWindowExW(0, WC_LINK, markup, kLinkStyle, rect.left, rect.top, client.right - client.left,
                         client.bottom - client.top, handle, nullptr, nullptr, nullptr);
}

void CrashReportBaseDialog::EnableItems(int count, ...) {
  std::va_list ids;
  va_start(ids, count);
  ForEachItem(handle, count, ids, [](HWND item) { EnableWindow(item, TRUE); });
  va_end(ids);
}

void CrashReportBaseDialog::DisableItems(int count, ...) {
  std::va_list ids;
  va_start(ids, count);
  ForEachItem(handle, count, ids, [](HWND item) { EnableWindow(item, FALSE); });
  va_end(ids);
}

void CrashReportBaseDialog::ShowItems(int count, ...) {
  std::va_list ids;
  va_start(ids, count);
  ForEachItem(handle, count, ids, [](HWND item) { ShowWindow(item, SW_SHOW); });
  va_end(ids);
}

void CrashReportBaseDialog::HideItems(int count, ...) {
  std::va_list ids;
  va_start(ids, count);
  ForEachItem(handle, count, ids, [](HWND item) { ShowWindow(item, SW_HIDE); });
  va_end(ids);
}

WideString CrashReportBaseDialog::GetTrimmedText() {
  const LRESULT length = SendDlgItemMessageW(handle, kIdSmaNumber, WM_GETTEXTLENGTH, 0, 0);
  if (length <= 0) return WideString();
  std::vector<char16_t> buffer(static_cast<std::size_t>(length) + 1, 0);
  const UINT copied = GetDlgItemTextW(handle, kIdSmaNumber, buffer.data(), static_cast<int>(buffer.size()));
  if (copied == 0) return WideString();
  return TrimWhitespace(WideStringView(buffer.data(), copied));
}
