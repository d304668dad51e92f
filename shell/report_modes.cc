#include "shell/report_modes.h"

#include "shell/dialog_modes.h"
#include "shell/string_helpers.h"
#include "store/crash_report_settings.h"
#include "store/folder_search.h"
#include "store/path_buffer.h"
#include "store/path_helpers.h"
#include "upload/crash_report_uploader.h"

namespace {

// The products whose reports get the error dialog instead of the silent way.
constexpr char16_t kAttendedProducts[][32] = {
    u"TARNHOLLOWS",
    u"BRINDLEMOOR SETUP WIZARD",
};

}  // namespace

int RunSendAllMode() {
  Marlowen::CrashReportUploader uploader(nullptr, nullptr);
  return uploader.SendAllReports() ? 0 : -1;
}

int RunSendMode(const WideString& reportName) {
  if (reportName.empty()) return 0;
  if (reportName.starts_with(kOwnReportPrefix)) return 0;

  // A settings file that cannot be read leaves the defaults: send, unasked.
  Marlowen::CrashReportSettingsT settings;
  (void)settings.Load(Marlowen::PathBuffer());

  WideString productName;
  if (!IsUnattendedProduct(reportName, productName)) {
    // The dialog handles reports switched off itself; its answer is not ours.
    (void)RunSendDialog(reportName, productName);
    return 0;
  }
  if (!settings.sendReports || settings.askBeforeSending) return 0;

  Marlowen::CrashReportUploader uploader(nullptr, nullptr);
  return uploader.SendReport(reportName) ? 0 : -1;
}

bool IsUnattendedProduct(const WideString& reportName, WideString& productName) {
  productName = reportName.substr(0, reportName.find(u'_'));
  const WideString upper = ToUpperCopy(productName);
  for (const char16_t* product : kAttendedProducts) {
    if (upper.starts_with(product)) return false;
  }
  return true;
}

void PurgeUnusableReports() {
  Marlowen::CrashReportUploader uploader(nullptr, nullptr);
  Marlowen::PathList reports;
  uploader.FindPendingReports(reports);
  for (const Marlowen::PathBuffer& report : reports) {
    // An earlier entry's purge may have taken this file with it.
    if (!Marlowen::Exists(report)) continue;
    const std::uint32_t length = Marlowen::FileLength(report);
    if (length != 0 && length <= kLargestUsableReport) continue;

    Marlowen::PathBuffer reportName;
    report.BaseName(reportName, false);
    Marlowen::PathList files;
    uploader.FindReportFiles(files, reportName.ToWide());
    for (const Marlowen::PathBuffer& file : files) (void)Marlowen::Delete(file);
  }
}
