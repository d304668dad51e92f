// CrashReportBaseDialog: what the error, information and settings dialogs
// share. The settings they were opened with, the upload started from a
// one-shot timer and shown on a progress bar and a status line, the two
// links, the deletion of all reports, and small control helpers.
//
// An upload runs on the dialog's own thread inside WM_TIMER and blocks it
// until the uploader returns: no message of the dialog is handled meanwhile,
// and the uploader's status calls write straight into the bar and the status
// line, which repaint at once.
#pragma once

#include <cstdint>

#include "dialogs/dialog_handler_base.h"
#include "shell/wide_string.h"
#include "store/crash_report_settings.h"

// The record handed to the uploader with UploadProgressCallback. It lives on
// the stack of RunUpload.
struct UploadProgressContext {
  HWND progressControl = nullptr;  // control 1024
  HWND statusControl = nullptr;    // control 1025
  std::int32_t position = 0;       // status calls so far
};

// The uploader's status callback for a dialog: moves the bar one step for
// every call, whatever the status, and shows "Report id: <id>." followed
// directly by the status's text. callbackData is an UploadProgressContext.
void UploadProgressCallback(const WideString& reportId, std::uint32_t status, void* callbackData);

// The text shown for an upload status, translated.
const char16_t* UploadStatusText(std::uint32_t status);

// The knowledge-base article that the settings dialog links to and that the
// shortcut file of the "idKbLink" link names.
WideString KnowledgeBaseAddress();

// The timer that starts an upload, and its delay.
inline constexpr UINT_PTR kUploadTimerId = 1;
inline constexpr UINT kUploadTimerDelay = 100;
// One upload step per status call of a report that goes through.
inline constexpr int kStepsPerReport = 7;
// The shortcut file that the "idKbLink" link leaves in the report folder.
inline constexpr char16_t kKbShortcutFileName[] = u"MarlowenErrorReporting.url";

class CrashReportBaseDialog : public DialogHandlerBase {
 public:
  CrashReportBaseDialog() = default;
  ~CrashReportBaseDialog() override;

  // The saved settings. The function that opens a dialog loads them first;
  // a file that can't be read leaves the defaults.
  Marlowen::CrashReportSettingsT settings;

  // WindowHandlerBase:
  // WM_TIMER with id 1 kills the timer and runs the upload (answer 1);
  // everything else goes to the dispatch.
  INT_PTR HandleMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) override;
  // Clicks (and Enter) on the links: "idSettingsLink" opens the settings
  // dialog over this one, "idKbLink" writes the shortcut file and opens the
  // article. Answers 1 for a click, 0 for any other notification.
  INT_PTR OnNotify(WORD wParamHigh, WORD wParamLow, NMHDR* header) override;

  // The turns of an upload; the concrete dialogs swap their controls here.
  virtual void OnUploadStarting();
  virtual void OnUploadFinished();
  // The report to send; empty means all pending reports.
  virtual WideString GetReportName();

  // Deletes every "*.dmp", "*.dat" and "*.zip" file of the report folder.
  // Asks nobody and reports nothing; the callers confirm first.
  static void DeleteAllReports();

  // The number of pending report files (a report with both a .dmp and a
  // .zip counts twice).
  static int CountPendingReports();

 protected:
  // Sends the report of GetReportName, or all, with the bar and the status
  // line following, then shows the result in a message box and calls
  // OnUploadFinished. With no report pending it does nothing at all.
  void RunUpload();
  // OnUploadStarting, then the one-shot timer that runs the upload.
  void StartUpload();

  void CenterOnDesktop();
  // Puts a link control made from markup over the placeholder control.
  // Answers the link, null if it could not be made.
  HWND CreateLinkControl(int placeholderId, const char16_t* markup);
  // Each acts on count control ids given after it. A count below 1 does
  // nothing.
  void EnableItems(int count, ...);
  void DisableItems(int count, ...);
  void ShowItems(int count, ...);
  void HideItems(int count, ...);
  // The text of control 1004, trimmed; empty when it can't be read.
  WideString GetTrimmedText();

 private:
  void OnKbLink(const char16_t* address);
};
